#include <CLI/CLI.hpp>
#include <future>
#include <list>
#include <memory>

#include "qzhub/attachment.h"
#include "qzhub/control_input.h"
#include "qzhub/scenario_file.h"
#include "qzhub/usbip_commands.h"

namespace qzhub {

namespace {

void Attach(const std::string& scenarioFile) {
  const virtualhub::Scenario scenario = LoadScenario(scenarioFile);
  const Vhci vhci;
  virtualhub::Machine machine(scenario);
  const StopEvent stop;
  stop.RequestOnSignals();
  EventLog log;
  std::list<Attachment> attachments;
  // When one fails, all end.
  const auto orStop = [&](auto&& step) {
    try {
      step();
    } catch (...) {
      stop.Request();
      throw;
    }
  };
  std::vector<std::future<void>> running;  // they end before what they use
  orStop([&] {
    for (const Export& exported : ExportsOf(scenario)) {
      Attachment& added = attachments.emplace_back(machine, exported, vhci, stop, log);
      added.AttachIfPresent();
      running.push_back(std::async(std::launch::async,
                                   [&orStop, &added] { orStop([&added] { added.Serve(); }); }));
    }
  });
  const ControlInput control(machine, !scenario.controlFile.empty(), stop, log);
  for (std::future<void>& attachment : running) attachment.get();
}

}  // namespace

void AddAttachCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand(
      "attach", "plug virtual devices into this computer (as root; needs vhci_hcd)");
  const auto scenario = std::make_shared<std::string>();
  command->add_option("--scenario", *scenario,
                      "JSON file that describes the devices, default: one hub and one keyboard");
  command->callback([scenario] { Attach(*scenario); });
  command->footer(
      "Keeps the devices attached until SIGINT or SIGTERM. Standard input takes lines as\n"
      "'qzhub plug', 'unplug' and 'power-loss' write them, such as \"unplug "
      "dock-a\".\n\nExamples:\n"
      "  modprobe vhci-hcd && qzhub attach --scenario two-hubs.json");
}

}  // namespace qzhub
