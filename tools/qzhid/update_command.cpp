#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>

#include "qzhid/commands.h"
#include "qzhid/interrupt.h"
#include "qzhid/options.h"
#include "qzhid/system.h"
#include "qzhid/update_run.h"

namespace qzhid {

namespace {

using State = UpdateJob::State;

std::vector<Hub> PickHubs(Host& host, const UpdateOptions& options) {
  if (options.isAll) return AllHubs(host);
  if (options.hubs.empty()) return {PickHub(host, "")};
  std::vector<Hub> hubs;
  for (const std::string& wanted : options.hubs) {
    const Hub hub = PickHub(host, wanted);
    const bool isNamedTwice = std::any_of(hubs.begin(), hubs.end(), [&hub](const Hub& other) {
      return other.instance == hub.instance;
    });
    if (!isNamedTwice) hubs.push_back(hub);
  }
  return hubs;
}

std::string Change(const UpdateJob& job, const Image& image) {
  return "hub " + job.hub.Name() + ": " + job.from + " -> " + VersionText(image.version);
}

void UpdateOne(Host& host, const UpdateOptions& options, const Image& image, UpdateRun& run) {
  const UpdateJob& job = run.Jobs().front();
  run.Check();
  if (job.failure) throw Failure(*job.failure);
  const std::string change = Change(job, image);
  if (!options.isAgreed) Confirm(change + ", write it?", job.hub.Name());
  if (options.isAgreed && !host.Settings().isQuiet) std::cerr << change << std::endl;
  run.Write();
  if (job.failure) throw Failure(*job.failure);
  const std::string stopped =
      InterruptGuard::IsStopWanted() ? "stopped, and the update was complete: " : "";
  host.Report({{"hub", ToJson(job.hub)},
               {"image", ToJson(image)},
               {"from", job.from},
               {"to", VersionText(image.version)},
               {"runs", job.runs}},
              stopped + "hub " + job.hub.Name() + " runs " + job.runs + " now\n");
}

std::string Result(const UpdateJob& job) {
  if (!job.failure) return "updated";
  if (job.failure->Status() == Exit::ImageRefused) return "refused";
  return job.failure->Status() == Exit::HubLost ? "lost" : "failed";
}

void ReportAll(Host& host, const Image& image, const UpdateRun& run) {
  const std::size_t done = run.Count(State::Done), all = run.Jobs().size();
  nlohmann::ordered_json hubs = nlohmann::ordered_json::array();
  std::string table = TableRow({"HUB", "FROM", "RUNS", "RESULT"}, "LOCATION");
  for (const UpdateJob& job : run.Jobs()) {
    table += TableRow({std::to_string(job.hub.instance), job.from, job.runs, Result(job)},
                      job.hub.Location());
    hubs.push_back({{"hub", ToJson(job.hub)},
                    {"from", job.from},
                    {"runs", job.runs},
                    {"result", Result(job)},
                    {"error", job.failure ? ToJson(*job.failure) : nlohmann::ordered_json()}});
  }
  host.Report({{"image", ToJson(image)}, {"hubs", hubs}, {"updated", done}, {"failed", all - done}},
              table + std::to_string(done) + " of " + std::to_string(all) + " hubs updated to " +
                  VersionText(image.version) + "\n");
}

// Shows the failures that were not shown before.
void ShowFailures(Host& host, const UpdateRun& run, std::vector<bool>& isShown) {
  isShown.resize(run.Jobs().size());
  for (std::size_t i = 0; i < run.Jobs().size(); ++i) {
    const auto& failure = run.Jobs()[i].failure;
    if (failure && !isShown[i]) host.Show(*failure);
    isShown[i] = failure.has_value();
  }
}

void UpdateAll(Host& host, const UpdateOptions& options, const Image& image, UpdateRun& run) {
  run.Check();
  std::vector<bool> isShown;
  ShowFailures(host, run, isShown);
  const std::size_t ready = run.Count(State::Ready);
  std::string changes;
  for (const UpdateJob& job : run.Jobs()) {
    if (job.state == State::Ready) changes += Change(job, image) + '\n';
  }
  if (!options.isAgreed && ready > 0) {
    Confirm(changes + std::to_string(ready) + (ready == 1 ? " hub" : " hubs") + ": write them?",
            "");
  } else if (!host.Settings().isQuiet) {
    std::cerr << changes << std::flush;
  }
  run.Write();
  ShowFailures(host, run, isShown);
  ReportAll(host, image, run);
}

void Update(Host& host, const UpdateOptions& options) {
  system::OutliveReaders();
  const Image image = ReadImage(host, options.image);
  UpdateRun run(host, options, image, PickHubs(host, options));
  const bool isOne = !options.isAll && options.hubs.size() < 2;
  (isOne ? UpdateOne : UpdateAll)(host, options, image, run);
}

CLI::App* AddWriter(CLI::App& app, Host& host, const std::string& name, const std::string& meaning,
                    const std::shared_ptr<UpdateOptions>& options) {
  CLI::App* command = app.add_subcommand(name, meaning);
  command->add_option("--image", options->image, "the firmware image file")->required();
  command->add_flag("--yes", options->isAgreed, "do not ask");
  command->add_flag("--force", options->isForced, "write an image that is for another hub");
  command->callback([&host, options] { Update(host, *options); });
  return command;
}

}  // namespace

void AddUpdateCommand(CLI::App& app, Host& host) {
  const auto options = std::make_shared<UpdateOptions>();
  CLI::App* command =
      AddWriter(app, host, "update", "write a firmware image to one or more hubs", options);
  CLI::Option* hubs = AddHubs(*command, options->hubs);
  command->add_flag("--all", options->isAll, "write to all hubs that are attached")->excludes(hubs);
  command->add_option("--jobs", options->jobs, "hubs that are written at a time, default 4")
      ->check(CLI::Range(std::size_t{1}, std::size_t{127}));
  command->add_flag("--reinstall", options->isReinstall,
                    "write the version that the hub already runs");
  command->add_flag("--stay-in-loader", options->staysInLoader, "do not start the new firmware");
  AddExamples(*command, {"qzhid update --image new.bin", "qzhid update 5 --image new.bin --yes",
                         "qzhid update 2E7C:0818 --image new.bin --reinstall",
                         "qzhid update --all --image new.bin --jobs 8"});
}

void AddRecoverCommand(CLI::App& app, Host& host) {
  const auto options = std::make_shared<UpdateOptions>();
  options->isRecovery = true;
  CLI::App* command = AddWriter(app, host, "recover",
                                "write a firmware image to a hub that is in its loader", options);
  AddHubs(*command, options->hubs)->expected(1);
  AddExamples(*command, {"qzhid recover --image new.bin", "qzhid recover 5 --image new.bin --yes"});
}

}  // namespace qzhid
