#include "qzhub/serving.h"

#include <CLI/CLI.hpp>
#include <cstdlib>

#include "qzhub/capture_option.h"
#include "qzhub/control_input.h"
#include "qzhub/scenario_file.h"
#include "qzhub/socket.h"

namespace qzhub {

void AddServingOptions(CLI::App& command, ServingOptions& options, const std::string& listen,
                       const std::string& meaning) {
  const CLI::Validator address(
      [listen](const std::string& text) {
        return SocketAddress::Parse(text)
                   ? std::string()
                   : "'" + text + "' is not an address with a port, such as " + listen +
                         " or [::1]" + listen.substr(listen.rfind(':'));
      },
      "ADDRESS:PORT");
  options.listen = listen;
  command.add_option("--listen", options.listen, meaning)
      ->check(address)
      ->option_text("ADDRESS:PORT");
  command
      .add_option("--scenario", options.scenario,
                  "JSON file that describes the devices, default: one hub and one keyboard")
      ->option_text("FILE");
  AddCaptureOption(command, options.capture);
}

void EndNow(virtualhub::Machine& machine, EventLog& log) {
  log.End();
  machine.Save();
  std::_Exit(EXIT_SUCCESS);
}

Serving::Serving(const ServingOptions& options)
    : scenario_(LoadScenario(options.scenario)),
      capture_(options.capture),
      exports_(ExportsOf(scenario_)) {}

void Serving::Run(const std::function<std::vector<Entrance>(Offer&)>& open,
                  std::chrono::milliseconds patience) {
  CaptureTo(capture_, scenario_);
  virtualhub::Machine machine(scenario_);
  const StopEvent stop;
  stop.RequestOnSignals();
  EventLog log;
  Offer offer(machine, exports_, log);
  for (const Export& exported : exports_) log.Event("exported " + exported.Label());
  const std::vector<Entrance> entrances = open(offer);
  const ControlInput control(machine, !scenario_.controlFile.empty(), stop, log);
  Server server(stop, log, patience);
  if (!server.Run(entrances)) EndNow(machine, log);
}

}  // namespace qzhub
