#include "qzhub/control_commands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <fstream>
#include <memory>
#include <system_error>

#include "qzhub/scenario_file.h"
#include "virtualhub/scenario/control_line.h"

namespace qzhub {

namespace {

struct ControlOptions {
  std::string name, detail, scenario;
};

// A line is short enough to be written at once, so those of several programs do not mix.
void Append(const std::filesystem::path& path, const std::string& line) {
  errno = 0;
  std::ofstream file(path, std::ios::binary | std::ios::app);
  file << line;
  file.close();
  if (file) return;
  throw std::runtime_error(path.string() +
                           " cannot be written: " + std::generic_category().message(errno));
}

void AddLine(const std::string& action, const ControlOptions& options) {
  const virtualhub::Scenario scenario = LoadScenario(options.scenario);
  const std::string line =
      action + ' ' + options.name + (options.detail.empty() ? "" : ' ' + options.detail);
  virtualhub::ParseControlLine(line);
  if (std::none_of(scenario.devices.begin(), scenario.devices.end(),
                   [&](const auto& device) { return device.name == options.name; })) {
    throw std::runtime_error(options.scenario + ": there is no device \"" + options.name + '"');
  }
  if (scenario.controlFile.empty()) {
    throw std::runtime_error(options.scenario +
                             ": the scenario has no control file: add \"control\": \"FILE\"");
  }
  Append(scenario.controlFile, line + '\n');
}

CLI::App* AddControlCommand(CLI::App& app, const std::string& action, const std::string& meaning,
                            const std::shared_ptr<ControlOptions>& options) {
  CLI::App* command = app.add_subcommand(action, meaning);
  command->add_option("NAME", options->name, "the device, as the scenario names it")->required();
  command
      ->add_option("--scenario", options->scenario,
                   "JSON file that describes the devices and names the control file, required")
      ->required()
      ->option_text("FILE");
  command->callback([action, options] { AddLine(action, *options); });
  command->footer(
      "Programs that run the scenario carry it out at once; those that start later find it "
      "done.\n\n"
      "Examples:\n  qzhub " +
      action + " dock-a --scenario two-hubs.json");
  return command;
}

}  // namespace

void AddControlCommands(CLI::App& app) {
  const auto options = std::make_shared<ControlOptions>();
  AddControlCommand(app, "plug", "plug in a virtual device of a scenario that programs run",
                    options)
      ->add_option("PORT", options->detail, "the port, default the one where it was");
  AddControlCommand(app, "unplug", "unplug a virtual device of such a scenario", options);
  AddControlCommand(app, "power-loss", "interrupt the power of such a virtual device", options)
      ->add_option("MILLISECONDS", options->detail, "how long the power is gone, default 500");
}

}  // namespace qzhub
