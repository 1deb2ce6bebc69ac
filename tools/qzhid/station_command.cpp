#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>

#include "qzhid/arrivals.h"
#include "qzhid/commands.h"
#include "qzhid/interrupt.h"
#include "qzhid/location.h"
#include "qzhid/options.h"
#include "qzhid/station.h"
#include "qzhid/station_display.h"
#include "qzhid/system.h"
#include "qzhid/worker_process.h"

namespace qzhid {

namespace {

struct StationOptions : WriteOptions {
  StationOptions() { retries = 5; }  // hubs that come and go in other bays make some tries fail

  std::vector<std::string> bays;
  std::string record, csv, page;
  bool asksLabel = false;
  std::size_t once = 0;
};

// The library, processes, files and displays.
class RealWorld final : public StationWorld {
 public:
  RealWorld(Host& host, const StationOptions& options, const Image& image)
      : host_(host),
        display_(host, options.page),
        records_(options.record, options.csv, std::bind_front(&StationDisplay::Say, &display_)),
        workers_(host, options, image) {}

  Clock::Time Now() override { return clock_.Now(); }
  UnitRecord::Date Date() override { return std::chrono::system_clock::now(); }

  // The library is not kept: what it has open would be in the way, and while nothing arrives
  // nothing of it is to run. Virtual hubs would go with it.
  std::vector<Hub> Hubs() override {
    std::vector<Hub> hubs = ListHubs(host_);
    if (!host_.IsVirtual()) host_.Release();
    return hubs;
  }

  std::unique_ptr<Worker> Start(const Hub& hub) override { return workers_.Start(hub, true); }
  bool IsStopWanted() override { return InterruptGuard::IsStopWanted(); }

  void CheckRoom(std::size_t records) override { records_.CheckRoom(records); }
  void Keep(const UnitRecord& record) override { records_.Add(record); }
  void WriteKept() override { records_.Flush(); }

  void Show(const StationView& view) override { display_.Show(view); }
  void Say(const std::string& line) override { display_.Say(line); }
  void EndDisplay() { display_.End(); }

  const StationRecords& Records() const { return records_; }

 private:
  Host& host_;
  Clock clock_;
  StationDisplay display_;
  StationRecords records_;
  WorkerStarter workers_;
};

// "left=1-3.1"; the port may have a name of its own.
StationPlan::Port ReadBay(Host& host, const std::string& text) {
  const std::size_t equals = std::min(text.find('='), text.size());
  StationPlan::Port bay{text.substr(0, equals), text.substr(std::min(equals + 1, text.size()))};
  if (bay.name.empty() || bay.port.empty()) {
    throw Failure(Exit::WrongUse, "'" + text + "' is not NAME=PORT", "",
                  "name bays like this: --bay left=1-3.1");
  }
  const auto named = host.Names().find(bay.port);
  if (named != host.Names().end()) bay.port = named->second;
  const bool isLocation = bay.port.ends_with(')');
  if (!isLocation && !IsPortId(bay.port)) {
    throw Failure(Exit::WrongUse, "'" + bay.port + "' is no port id, no location and no known name",
                  "", "take the port id from 'qzhid list', or a name from ports.conf");
  }
  return bay;
}

std::vector<StationPlan::Port> ReadBays(Host& host, const std::vector<std::string>& texts) {
  std::vector<StationPlan::Port> bays;
  for (const std::string& text : texts) {
    const StationPlan::Port bay = ReadBay(host, text);
    for (const StationPlan::Port& other : bays) {
      const bool isPort = Upper(other.port) == Upper(bay.port);
      if (!isPort && other.name != bay.name) continue;
      throw Failure(Exit::WrongUse,
                    isPort ? "the bays " + other.name + " and " + bay.name + " have the same port"
                           : "there are two bays " + bay.name,
                    "", "give each bay a name and a port of its own");
    }
    bays.push_back(bay);
  }
  return bays;
}

StationPlan MakePlan(Host& host, const StationOptions& options, const Image& image) {
  StationPlan plan;
  plan.bays = ReadBays(host, options.bays);
  plan.asksLabel = options.asksLabel;
  plan.most = options.once;
  plan.imageSize = image.bytes.size();
  plan.imageVersion = image.version;
  plan.record.image = std::filesystem::path(image.path).filename().string();
  plan.record.sha256 = image.sha256;
  plan.record.program = QZHID_VERSION;
  plan.record.library = system::LibraryVersion(host.Api().file);
  plan.record.host = system::HostName();
  return plan;
}

bool AreSame(const std::filesystem::path& one, const std::filesystem::path& other) {
  std::error_code ignored;
  using std::filesystem::absolute, std::filesystem::weakly_canonical;
  if (std::filesystem::equivalent(one, other, ignored)) return true;
  const std::filesystem::path whole = weakly_canonical(absolute(one, ignored), ignored);
  return !whole.empty() && whole == weakly_canonical(absolute(other, ignored), ignored);
}

// What replaces one file must not destroy another one.
void CheckFiles(Host& host, const StationOptions& options) {
  const std::vector<std::pair<std::string, std::string>> files = {{"--image", options.image},
                                                                  {"--record", options.record},
                                                                  {"--csv", options.csv},
                                                                  {"--page", options.page},
                                                                  {"--log", host.Settings().log}};
  for (auto one = files.begin(); one != files.end(); ++one) {
    for (auto other = std::next(one); other != files.end(); ++other) {
      const bool areGiven = !one->second.empty() && !other->second.empty();
      if (!areGiven || !AreSame(one->second, other->second)) continue;
      throw Failure(Exit::WrongUse, one->first + " and " + other->first + " name the same file", "",
                    "give each a file of its own");
    }
  }
}

void StopAtInterrupt(Station& station, RealWorld& world) {
  if (!InterruptGuard::TakeInterrupt()) return;
  station.Stop();
  if (station.IsOver()) return;
  world.Say(InterruptGuard::IsStopWanted()
                ? "stopping as soon as the hubs being written can be left"
                : "the hubs being written are finished first; do not unplug them");
}

// Until it is interrupted, or has done all units.
void Run(Station& station, RealWorld& world, Arrivals& arrivals) {
  const InterruptGuard guard;
  for (station.Step(); !station.IsOver(); station.Step()) {
    arrivals.Await(station.Sources(), station.Rest());
    if (arrivals.TakeChange()) station.Look();
    while (const auto line = arrivals.TakeLine()) station.TakeLabel(*line);
    if (arrivals.HasEnded()) station.EndLabels();
    StopAtInterrupt(station, world);
  }
}

void CheckRecorded(const RealWorld& world) {
  const std::vector<std::string>& lines = world.Records().Unwritten();
  if (lines.empty()) return;
  for (const std::string& line : lines) std::cerr << line;
  throw Failure(Exit::Failed,
                "the record file lacks " + std::to_string(lines.size()) +
                    (lines.size() == 1 ? " record" : " records"),
                "", "add the lines above to it");
}

void RunStation(Host& host, const StationOptions& options) {
  system::OutliveReaders();
  CheckFiles(host, options);
  const Image image = ReadWantedImage(options);
  host.LeaveLogToOthers();
  const StationPlan plan = MakePlan(host, options, image);
  RealWorld world(host, options, image);
  Arrivals arrivals(host.IsVirtual(), options.asksLabel);
  Station station(world, plan);
  Run(station, world, arrivals);
  world.EndDisplay();
  const StationView& view = station.View();
  CheckRecorded(world);
  host.Report(
      {{"image", ToJson(image)}, {"passed", view.passed}, {"failed", view.failed}},
      std::to_string(view.passed) + " passed, " + std::to_string(view.failed) + " failed\n");
  const bool isShort = view.passed + view.failed < options.once;
  if (options.once > 0 && (view.failed > 0 || isShort)) host.SetStatus(Exit::Failed);
}

}  // namespace

void AddStationCommand(CLI::App& app, Host& host) {
  const auto options = std::make_shared<StationOptions>();
  options->rules.takesLoader = true;
  CLI::App* command =
      app.add_subcommand("station", "update every hub that is plugged in, and keep a record");
  command->add_option("--bay", options->bays, "a place for a hub, by name and port; default all")
      ->option_text("NAME=PORT ...")
      ->allow_extra_args(false)
      ->take_all();
  AddWriteOptions(*command, *options);
  AddRuleOptions(*command, options->rules);
  command->add_option("--record", options->record, "add a JSON line for each unit, required")
      ->required()
      ->option_text("FILE");
  command->add_option("--csv", options->csv, "add the same to a table")->option_text("FILE");
  command->add_option("--page", options->page, "show the bays in this HTML file, too")
      ->option_text("FILE");
  command->add_flag("--ask-label", options->asksLabel,
                    "wait until the label of each unit is scanned");
  command->add_option("--once", options->once, "end after so many units")
      ->check(CLI::Range(std::size_t{1}, std::size_t{1000000000}))
      ->option_text("N");
  command->callback([&host, options] { RunStation(host, *options); });
  AddExamples(*command, {"qzhid station --image new.bin --record line1.jsonl",
                         "qzhid station -i new.bin --bay left=1-3.1 --bay right=1-3.2 "
                         "--record line1.jsonl --csv line1.csv --ask-label"});
}

}  // namespace qzhid
