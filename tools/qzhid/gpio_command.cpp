#include <CLI/CLI.hpp>
#include <memory>

#include "qzhid/commands.h"
#include "qzhid/hubs.h"
#include "qzhid/options.h"
#include "qzhid/selector.h"

namespace qzhid {

namespace {

constexpr std::uint32_t kLastLine = 23;
constexpr std::uint32_t kLastHubNumber = 0xFFFF;

struct GpioOptions {
  std::optional<std::string> hub;
  std::uint32_t line = 0;
  std::uint32_t level = 0;
};

std::shared_ptr<GpioOptions> AddLine(CLI::App& command, std::uint32_t last, bool hasLevel) {
  auto options = std::make_shared<GpioOptions>();
  command.add_option("LINE", options->line, "number of the line")
      ->required()
      ->check(CLI::Range(0u, last));
  if (hasLevel) {
    command.add_option("LEVEL", options->level, "0 or 1")->required()->check(CLI::Range(0u, 1u));
  }
  AddHub(command, options->hub);
  return options;
}

void ReportLevel(Host& host, const Hub& hub, std::uint32_t line, std::uint32_t level) {
  host.Report({{"hub", ToJson(hub)}, {"line", line}, {"level", level}},
              "line " + std::to_string(line) + " is " + std::to_string(level) + "\n");
}

void Get(Host& host, const GpioOptions& options) {
  const Hub hub = PickHub(host, options.hub);
  const OpenHub open(host, hub);
  std::uint8_t level = 0;
  open.Do("reading the line",
          [&] { return host.Api().HidGPIOR(open.Handle(), options.line, &level, sizeof(level)); });
  ReportLevel(host, hub, options.line, level);
}

// By the hub's own numbering: the library's answer is a boolean.
void Set(Host& host, const GpioOptions& options) {
  const Hub hub = PickHub(host, options.hub);
  const OpenHub open(host, hub);
  const auto level = static_cast<std::uint8_t>(options.level);
  open.Do("setting the line", [&] {
    return host.Api().HidSetHubGPIO(open.Handle(), options.line, level) != 0 ? 0u : 1u;
  });
  ReportLevel(host, hub, options.line, options.level);
}

void Drive(Host& host, const GpioOptions& options) {
  const Hub hub = PickHub(host, options.hub);
  const OpenHub open(host, hub);
  open.Do("driving the line",
          [&] { return host.Api().HidGPIOW(open.Handle(), options.line, options.level); });
  ReportLevel(host, hub, options.line, options.level);
}

void Add(CLI::App& group, Host& host, const std::string& name, const std::string& meaning,
         std::uint32_t last, void (*work)(Host&, const GpioOptions&), const std::string& example) {
  CLI::App* command = group.add_subcommand(name, meaning);
  const bool hasLevel = work != Get;
  const auto options = AddLine(*command, last, hasLevel);
  AddExamples(*command, {example, example + " --hub 2E7C:0818"});
  command->callback([&host, options, work] { work(host, *options); });
}

}  // namespace

void AddGpioCommand(CLI::App& app, Host& host) {
  CLI::App* group = app.add_subcommand("gpio", "read and drive the hub's GPIO lines");
  group->require_subcommand(1);
  Add(*group, host, "get", "read a line (0 to 23)", kLastLine, Get, "qzhid gpio get 5");
  Add(*group, host, "drive", "drive a line (0 to 23) to a level", kLastLine, Drive,
      "qzhid gpio drive 5 1");
  Add(*group, host, "set", "set a line by the hub's own numbering", kLastHubNumber, Set,
      "qzhid gpio set 5 1");
  AddExamples(*group, {"qzhid gpio get 5", "qzhid gpio drive 5 1"});
}

}  // namespace qzhid
