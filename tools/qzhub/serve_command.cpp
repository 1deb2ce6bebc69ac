#include <CLI/CLI.hpp>
#include <memory>

#include "qzhub/kernel_commands.h"
#include "qzhub/serving.h"
#include "qzhub/socket.h"

namespace qzhub {

namespace {

void Serve(const ServingOptions& options) {
  Serving serving(options);
  const tools::Descriptor listener = Listen(*SocketAddress::Parse(options.listen));
  const auto open = [&](Offer& offer) -> std::vector<Entrance> {
    offer.log().Event("listening " + LocalAddress(listener.get()).Text());
    return {UsbipEntrance(listener.get(), offer)};
  };
  serving.Run(open, Server::kPatience);
}

}  // namespace

void AddServeCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("serve", "offer virtual devices over USB/IP");
  const auto options = std::make_shared<ServingOptions>();
  AddServingOptions(*command, *options, "127.0.0.1:3240",
                    "where clients connect, default 127.0.0.1:3240; anyone who can reach it can "
                    "use the devices");
  command->callback([options] { Serve(*options); });
  command->footer(
      "Serves up to 256 clients at once, until SIGINT or SIGTERM. Standard input takes lines as\n"
      "'qzhub plug', 'unplug' and 'power-loss' write them, such as \"unplug dock-a\".\n\n"
      "Examples:\n  qzhub serve\n"
      "  qzhub serve --listen 192.0.2.1:3240 --scenario two-hubs.json");
}

}  // namespace qzhub
