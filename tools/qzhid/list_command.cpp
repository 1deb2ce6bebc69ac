#include <CLI/CLI.hpp>
#include <memory>

#include "common/options.h"
#include "qzhid/commands.h"
#include "qzhid/hubs.h"
#include "qzhid/options.h"

namespace qzhid {

namespace {

struct ListOptions {
  std::uint16_t vid = 0;
  std::uint16_t pid = 0;
  bool isFiltered = false;
};

void List(Host& host, const ListOptions& options) {
  const std::vector<Hub> hubs =
      options.isFiltered ? ListDevices(host, options.vid, options.pid) : ListHubs(host);
  if (hubs.empty() && !options.isFiltered) CheckPermission(host, "");
  nlohmann::ordered_json object = {{"hubs", nlohmann::ordered_json::array()}};
  std::string table = TableRow({"INSTANCE", "VID:PID", "LEVEL", "PORT"}, "LOCATION");
  for (const Hub& hub : hubs) {
    object["hubs"].push_back(ToJson(hub));
    table += TableRow({std::to_string(hub.instance), hub.vid + ":" + hub.pid,
                       std::to_string(hub.level), std::to_string(hub.port)},
                      hub.Location());
  }
  host.Report(object, hubs.empty() ? "no hub is attached\n" : table);
}

}  // namespace

void AddListCommand(CLI::App& app, Host& host) {
  CLI::App* command = app.add_subcommand("list", "list the hubs that are attached");
  const auto options = std::make_shared<ListOptions>();
  CLI::Option* vid =
      tools::AddHexNumber(*command, "--vid", options->vid, "list HID devices of this vendor id");
  CLI::Option* pid = tools::AddHexNumber(*command, "--pid", options->pid, "and this product id");
  vid->needs(pid);
  pid->needs(vid);
  AddExamples(*command, {"qzhid list", "qzhid list --vid 2E7C --pid 0818 --json"});
  command->callback([&host, options, vid] {
    options->isFiltered = vid->count() > 0;
    List(host, *options);
  });
}

}  // namespace qzhid
