#include <CLI/CLI.hpp>
#include <memory>

#include "qzhid/commands.h"
#include "qzhid/options.h"
#include "qzhid/patience.h"
#include "qzhid/selector.h"
#include "qzhid/state.h"

namespace qzhid {

namespace {

constexpr std::uint32_t kLines = 24;

std::string AsText(const std::string& text) { return text; }
std::string AsText(std::uint32_t number) { return std::to_string(number); }

template <typename Item>
std::string Join(const std::vector<Item>& items) {
  std::string all;
  for (const Item& item : items) all += (all.empty() ? "" : ", ") + AsText(item);
  return all.empty() ? "none" : all;
}

// The numbers of the lines that are high; none when the hub does not answer.
std::optional<std::vector<std::uint32_t>> HighLines(Host& host, const OpenHub& hub) {
  std::vector<std::uint32_t> high;
  for (std::uint32_t line = 0; line < kLines; ++line) {
    std::uint8_t level = 0;
    if (host.Api().HidGPIOR(hub.Handle(), line, &level, sizeof(level)) != 0) return std::nullopt;
    if (level != 0) high.push_back(line);
  }
  return high;
}

std::optional<std::uint8_t> FlashStatus(Host& host, const OpenHub& hub) {
  std::uint8_t status = 0;
  if (host.Api().HidI2CBlockStatus(hub.Handle(), &status) != 0) return std::nullopt;
  return status;
}

struct Details {
  std::optional<std::vector<std::uint32_t>> highLines;
  std::optional<std::uint8_t> flashStatus;
};

Details ReadDetails(Host& host, const Hub& hub) {
  const Patience patience(host, "hub " + hub.Name() + " to answer");
  const OpenHub open(host, hub);
  return {HighLines(host, open), FlashStatus(host, open)};
}

void ShowInfo(Host& host, const std::optional<std::string>& wanted) {
  const Hub hub = PickHub(host, wanted);
  const HubState state = ReadState(host, hub);
  const auto [high, flash] = ReadDetails(host, hub);
  nlohmann::ordered_json object = {{"hub", ToJson(hub)}};
  object["locations"] = hub.locations;
  object["hardware_ids"] = hub.hardwareIds;
  object["hub_vid"] = IdText(state.vid);
  object["hub_pid"] = IdText(state.pid);
  object["state"] = state.version ? "firmware" : "loader";
  object["version"] = state.version ? nlohmann::json(state.Text()) : nlohmann::json();
  object["gpio_high"] = high ? nlohmann::json(*high) : nlohmann::json();
  object["flash_status"] = flash ? nlohmann::json(*flash) : nlohmann::json();
  host.Report(object,
              Table({{"port", hub.shownId},
                     {"name", OrDash(hub.userName)},
                     {"HID VID:PID", hub.vid + ":" + hub.pid},
                     {"hub VID:PID", IdText(state.vid) + ":" + IdText(state.pid)},
                     {"level, port", std::to_string(hub.level) + ", " + std::to_string(hub.port)},
                     {"location", Join(hub.locations)},
                     {"hardware ids", Join(hub.hardwareIds)},
                     {"runs", state.version ? "firmware " + state.Text() : state.Text()},
                     {"GPIO high", high ? Join(*high) : "not readable"},
                     {"flash status", flash ? std::to_string(*flash) : "not readable"}}));
}

}  // namespace

void AddInfoCommand(CLI::App& app, Host& host) {
  CLI::App* command = app.add_subcommand("info", "show everything that can be read from a hub");
  const auto hub = std::make_shared<std::optional<std::string>>();
  AddHub(*command, *hub);
  AddExamples(*command,
              {"qzhid info", "qzhid info --hub 1-3.1", "qzhid info --hub 2E7C:0818 --json"});
  command->callback([&host, hub] { ShowInfo(host, *hub); });
}

}  // namespace qzhid
