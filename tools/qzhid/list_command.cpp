#include <CLI/CLI.hpp>
#include <memory>

#include "common/options.h"
#include "qzhid/commands.h"
#include "qzhid/hubs.h"
#include "qzhid/options.h"
#include "qzhid/state.h"

namespace qzhid {

namespace {

struct ListOptions {
  std::uint16_t vid = 0;
  std::uint16_t pid = 0;
};

using Rows = std::vector<std::vector<std::string>>;

// This opens no device.
void ListAnyDevices(Host& host, const ListOptions& options) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  Rows rows = {{"PORT", "NAME", "VID:PID", "LOCATION"}};
  for (const Hub& device : ListDevices(host, options.vid, options.pid)) {
    list.push_back({{"hub", ToJson(device)}});
    rows.push_back({device.shownId, OrDash(device.userName), device.vid + ":" + device.pid,
                    device.Location()});
  }
  host.Report({{"hubs", list}},
              rows.size() == 1 ? "no such HID device is attached\n" : Table(rows));
}

// Whether there is a library; if not, that is shown.
bool HasLibrary(Host& host) {
  try {
    host.Api();
    return true;
  } catch (const Failure& failure) {
    if (host.IsVirtual()) throw;
    host.Show(failure);
    return false;
  }
}

void List(Host& host) {
  const bool hasLibrary = HasLibrary(host);
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  Rows rows = {{"PORT", "NAME", "VID:PID", "VERSION", "STATE"}};
  for (const Hub& hub : hasLibrary ? ListHubs(host) : ListAttachedHubs(host)) {
    const HubSummary summary = hasLibrary ? Summarise(host, hub) : SummariseUnread(hub);
    const std::string version = summary.version ? VersionText(*summary.version) : "";
    list.push_back({{"hub", ToJson(hub)},
                    {"state", summary.state},
                    {"version", summary.version ? nlohmann::json(version) : nlohmann::json()}});
    rows.push_back({hub.shownId, OrDash(hub.userName), hub.vid + ":" + hub.pid, OrDash(version),
                    summary.state});
  }
  host.Report({{"hubs", list}}, rows.size() == 1 ? "no hub is attached\n" : Table(rows));
}

}  // namespace

void AddListCommand(CLI::App& app, Host& host) {
  CLI::App* command = app.add_subcommand("list", "list the hubs that are attached");
  const auto options = std::make_shared<ListOptions>();
  CLI::Option* vid = tools::AddHexNumber(*command, "--vid", options->vid,
                                         "list the HID devices of this vendor id");
  CLI::Option* pid = tools::AddHexNumber(*command, "--pid", options->pid, "and this product id");
  vid->needs(pid);
  pid->needs(vid);
  AddExamples(*command, {"qzhid list", "qzhid list --vid 2E7C --pid 0818 --json"});
  command->callback(
      [&host, options, vid] { vid->count() > 0 ? ListAnyDevices(host, *options) : List(host); });
}

}  // namespace qzhid
