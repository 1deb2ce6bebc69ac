#include <CLI/CLI.hpp>
#include <cstdlib>
#include <memory>

#include "qzhub/capture_option.h"
#include "qzhub/control_input.h"
#include "qzhub/scenario_file.h"
#include "qzhub/server.h"
#include "qzhub/socket.h"
#include "qzhub/usbip_commands.h"

namespace qzhub {

namespace {

struct ServeOptions {
  std::string listen = "127.0.0.1:3240";
  std::string scenario, capture;
};

void Serve(const ServeOptions& options) {
  virtualhub::Scenario scenario = LoadScenario(options.scenario);
  const tools::Descriptor listener = Listen(*SocketAddress::Parse(options.listen));
  CaptureTo(options.capture, scenario);
  virtualhub::Machine machine(scenario);
  const StopEvent stop;
  stop.RequestOnSignals();
  EventLog log;
  const std::vector<Export> exports = ExportsOf(scenario);
  for (const Export& exported : exports) {
    log.Event("exported " + exported.name + " busid=" + exported.place.Busid());
  }
  log.Event("listening " + LocalAddress(listener.get()).Text());
  const ControlInput control(machine, !scenario.controlFile.empty(), stop, log);
  Server server(machine, exports, stop, log);
  if (server.Run(listener.get())) return;
  // Transfers are under way that may take long: nobody waits for them.
  log.End();
  machine.Save();
  std::_Exit(EXIT_SUCCESS);
}

}  // namespace

void AddServeCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("serve", "offer virtual devices over USB/IP");
  const auto options = std::make_shared<ServeOptions>();
  const CLI::Validator address(
      [](const std::string& text) {
        return SocketAddress::Parse(text) ? std::string()
                                          : "'" + text +
                                                "' is not an address with a port, such "
                                                "as 127.0.0.1:3240 or [::1]:3240";
      },
      "ADDRESS:PORT");
  command
      ->add_option("--listen", options->listen,
                   "where clients connect, default 127.0.0.1:3240; anyone who can reach it can use "
                   "the devices")
      ->check(address);
  command->add_option("--scenario", options->scenario,
                      "JSON file that describes the devices, default: one hub and one keyboard");
  AddCaptureOption(*command, options->capture);
  command->callback([options] { Serve(*options); });
  command->footer(
      "Serves up to 256 clients at once, until SIGINT or SIGTERM. Standard input takes lines as\n"
      "'qzhub plug', 'unplug' and 'power-loss' write them, such as \"unplug dock-a\".\n\n"
      "Examples:\n  qzhub serve\n"
      "  qzhub serve --listen 192.0.2.1:3240 --scenario two-hubs.json");
}

}  // namespace qzhub
