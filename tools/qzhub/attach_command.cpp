#include <CLI/CLI.hpp>
#include <chrono>
#include <future>
#include <list>
#include <memory>
#include <vector>

#include "qzhub/attachment.h"
#include "qzhub/capture_option.h"
#include "qzhub/control_input.h"
#include "qzhub/kernel_commands.h"
#include "qzhub/scenario_file.h"
#include "qzhub/serving.h"

namespace qzhub {

namespace {

struct AttachOptions {
  std::string scenario, capture;
};

// Waits for the request to end, and then for the attachments; false when some do not end soon.
bool AwaitEnd(std::vector<std::future<void>>& running, const StopEvent& stop) {
  constexpr std::chrono::hours kLong{1};
  constexpr std::chrono::milliseconds kEndTime{600};
  while (!stop.WaitFor(kLong)) {
  }
  const auto until = std::chrono::steady_clock::now() + kEndTime;
  bool haveEnded = true;
  for (std::future<void>& attachment : running) {
    if (attachment.wait_until(until) == std::future_status::ready) {
      attachment.get();
    } else {
      haveEnded = false;
    }
  }
  return haveEnded;
}

void Attach(const AttachOptions& options) {
  virtualhub::Scenario scenario = LoadScenario(options.scenario);
  const Vhci vhci;
  CaptureTo(options.capture, scenario);
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
  if (!AwaitEnd(running, stop)) EndNow(machine, log);
}

}  // namespace

void AddAttachCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand(
      "attach", "plug virtual devices into this computer (as root; needs vhci_hcd)");
  const auto options = std::make_shared<AttachOptions>();
  command
      ->add_option("--scenario", options->scenario,
                   "JSON file that describes the devices, default: one hub and one keyboard")
      ->option_text("FILE");
  AddCaptureOption(*command, options->capture);
  command->callback([options] { Attach(*options); });
  command->footer(
      "Keeps the devices attached until SIGINT or SIGTERM. Standard input takes lines as\n"
      "'qzhub plug', 'unplug' and 'power-loss' write them, such as \"unplug "
      "dock-a\".\n\nExamples:\n"
      "  modprobe vhci-hcd && qzhub attach --scenario two-hubs.json");
}

}  // namespace qzhub
