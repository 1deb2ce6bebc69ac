#include <CLI/CLI.hpp>
#include <memory>
#include <stdexcept>

#include "qzhub/kernel_commands.h"
#include "qzhub/redirect_session.h"
#include "qzhub/serving.h"
#include "qzhub/socket.h"

namespace qzhub {

namespace {

// QEMU connects before it makes the device that says hello, which may be plugged in later.
constexpr auto kPatience = std::chrono::minutes(1);

// A listener for each device, on ports in a row, which the exports then name.
std::vector<tools::Descriptor> ListenForEach(const std::string& first,
                                             std::vector<Export>& exports) {
  std::vector<tools::Descriptor> listeners;
  for (Export& exported : exports) {
    const auto address = SocketAddress::Parse(first)->Following(listeners.size());
    if (!address) {
      throw std::runtime_error("there are not " + std::to_string(exports.size()) + " ports from " +
                               first + " on, one for each device");
    }
    listeners.push_back(Listen(*address));
    exported.address = LocalAddress(listeners.back().get()).Text();
  }
  return listeners;
}

void Redirect(const ServingOptions& options) {
  Serving serving(options);
  const std::vector<tools::Descriptor> listeners = ListenForEach(options.listen, serving.exports());
  const auto open = [&](Offer& offer) {
    std::vector<Entrance> entrances;
    for (const Export& exported : offer.exports()) {
      entrances.push_back(
          {listeners[entrances.size()].get(), [&offer, &exported](const Line& line) {
             return std::make_unique<RedirectSession>(offer, exported, line);
           }});
    }
    return entrances;
  };
  serving.Run(open, kPatience);
}

}  // namespace

void AddRedirectCommand(CLI::App& app) {
  CLI::App* command =
      app.add_subcommand("redirect", "plug virtual devices into QEMU guests, over usbredir");
  const auto options = std::make_shared<ServingOptions>();
  AddServingOptions(*command, *options, "127.0.0.1:4000",
                    "where QEMU connects for the first device, default 127.0.0.1:4000; the next "
                    "devices have the next ports; anyone who can reach them can use the devices");
  command->callback([options] { Redirect(*options); });
  command->footer(
      "The guest needs no driver: QEMU shows it each device at an ordinary USB controller. Runs\n"
      "until SIGINT or SIGTERM. Standard input takes lines as 'qzhub plug', 'unplug' and\n"
      "'power-loss' write them, such as \"unplug dock-a\".\n\n"
      "Examples:\n  qzhub redirect --listen 127.0.0.1:4000 --scenario two-hubs.json\n"
      "  qemu-system-x86_64 ... -device qemu-xhci \\\n"
      "    -chardev socket,id=a,host=127.0.0.1,port=4000 -device usb-redir,chardev=a \\\n"
      "    -chardev socket,id=b,host=127.0.0.1,port=4001 -device usb-redir,chardev=b");
}

}  // namespace qzhub
