#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <map>
#include <memory>

#include "common/texts.h"
#include "qzhid/commands.h"
#include "qzhid/interrupt.h"
#include "qzhid/options.h"
#include "qzhid/selector.h"
#include "qzhid/system.h"
#include "qzhid/update_run.h"

namespace qzhid {

namespace {

using State = UpdateJob::State;

const std::map<std::string, ProgressStyle> kStyles = {
    {"auto", ProgressStyle::Auto}, {"lines", ProgressStyle::Lines}, {"json", ProgressStyle::Json}};

std::vector<Hub> ChooseHubs(Host& host, const UpdateOptions& options) {
  if (!options.isAll) return PickHubs(host, options.hubs);
  std::vector<Hub> hubs = ListHubs(host);
  if (hubs.empty()) throw NoHub();
  return hubs;
}

// What is about to be written, a line for each hub.
std::string Changes(const UpdateRun& run, const Image& image) {
  std::string changes;
  for (const UpdateJob& job : run.Jobs()) {
    if (job.state != State::Ready) continue;
    changes +=
        "hub " + job.hub.Name() + ": " + job.from + " -> " + VersionText(image.version) + '\n';
  }
  return changes;
}

// Shows the failures that were not shown before.
void ShowFailures(Host& host, const UpdateRun& run, std::vector<bool>& isShown) {
  isShown.resize(run.Jobs().size());
  for (std::size_t i = 0; i < run.Jobs().size(); ++i) {
    const auto& failure = run.Jobs()[i].failure;
    if (failure && !isShown[i]) {
      host.Settings().printsEvents ? host.Count(*failure) : host.Show(*failure);
    }
    isShown[i] = failure.has_value();
  }
}

nlohmann::ordered_json ToJson(const UpdateJob& job) {
  return {{"hub", ToJson(job.hub)},
          {"outcome", NameOf(job.outcome)},
          {"from", job.from},
          {"runs", job.runs},
          {"retries", job.retries},
          {"error", job.failure ? ToJson(*job.failure) : nlohmann::ordered_json()}};
}

// How many hubs had each outcome: "2 updated, 1 lost".
std::string Summary(const UpdateRun& run) {
  std::string text;
  for (int i = 0; i <= static_cast<int>(Outcome::Failed); ++i) {
    const auto outcome = static_cast<Outcome>(i);
    const std::size_t count = run.Count(outcome);
    if (count == 0) continue;
    text += (text.empty() ? "" : ", ") + std::to_string(count) + ' ' + NameOf(outcome);
  }
  return text;
}

std::string Sentence(const UpdateJob& job) {
  const std::string hub = "hub " + job.hub.Name();
  switch (job.outcome) {
    case Outcome::Updated:
      return (InterruptGuard::IsStopWanted() ? "stopped, and the update was complete: " : "") +
             hub + " runs " + job.runs + " now\n";
    case Outcome::Current:
      return hub + " already runs " + job.runs + '\n';
    case Outcome::NotStarted:
      return job.failure ? "" : hub + " would be written\n";
    default:
      return "";  // the failure has been shown
  }
}

void ReportAll(Host& host, const UpdateOptions& options, const Image& image, const UpdateRun& run) {
  nlohmann::ordered_json hubs = nlohmann::ordered_json::array();
  std::vector<std::vector<std::string>> rows = {{"PORT", "NAME", "FROM", "RUNS", "OUTCOME"}};
  for (const UpdateJob& job : run.Jobs()) {
    hubs.push_back(ToJson(job));
    rows.push_back(
        {job.hub.shownId, OrDash(job.hub.userName), job.from, job.runs, NameOf(job.outcome)});
  }
  const bool isOne = !options.isAll && rows.size() == 2;
  host.Report({{"image", ToJson(image)}, {"dry_run", options.isDryRun}, {"hubs", hubs}},
              isOne ? Sentence(run.Jobs().front()) : Table(rows) + Summary(run) + '\n');
}

void Ask(const UpdateOptions& options, const std::string& changes) {
  if (options.isAgreed || changes.empty()) return;
  Confirm(changes +
              (std::count(changes.begin(), changes.end(), '\n') == 1 ? "write it?" : "write them?"),
          "");
}

void Update(Host& host, const UpdateOptions& options) {
  system::OutliveReaders();
  const Image image = ReadWantedImage(options);
  UpdateRun run(host, options, image, ChooseHubs(host, options));
  run.Check();
  std::vector<bool> isShown;
  ShowFailures(host, run, isShown);
  const std::string changes = Changes(run, image);
  const bool isAsked = !options.isAgreed && !options.isDryRun;
  if (!isAsked && !host.Settings().isQuiet && !host.Settings().printsEvents) {
    std::cerr << changes << std::flush;
  }
  if (options.isDryRun) {
    run.Skip();
  } else {
    Ask(options, changes);
    run.Write();
    ShowFailures(host, run, isShown);
  }
  ReportAll(host, options, image, run);
}

CLI::App* AddWriter(CLI::App& app, Host& host, const std::string& name, const std::string& meaning,
                    const std::shared_ptr<UpdateOptions>& options) {
  CLI::App* command = app.add_subcommand(name, meaning);
  AddHubs(*command, options->hubs);
  AddWriteOptions(*command, *options);
  command->add_flag("-y,--yes", options->isAgreed, "do not ask");
  command->add_flag("-n,--dry-run", options->isDryRun,
                    "only check, and show what would be written");
  command
      ->add_option_function<std::string>(
          "--progress", [options](const std::string& word) { options->style = kStyles.at(word); },
          "auto (default), lines or json")
      ->check(CLI::IsMember(kStyles))
      ->option_text("MODE");
  command->callback([&host, options] {
    options->rules.takesLoader = options->isAll;
    host.Settings().printsEvents = options->style == ProgressStyle::Json;
    Update(host, *options);
  });
  return command;
}

}  // namespace

void AddUpdateCommand(CLI::App& app, Host& host) {
  const auto options = std::make_shared<UpdateOptions>();
  CLI::App* command =
      AddWriter(app, host, "update", "write a firmware image to one or more hubs", options);
  command->add_flag("--all", options->isAll, "all hubs that are attached, also in their loader")
      ->excludes("--hub");
  command->add_option("--jobs", options->jobs, "hubs that are written at a time, default 4")
      ->check(CLI::Range(std::size_t{1}, std::size_t{127}))
      ->option_text("N");
  AddRuleOptions(*command, options->rules);
  command->add_flag("--stay-in-loader", options->staysInLoader, "do not start the new firmware");
  AddExamples(*command,
              {"qzhid update --image new.bin", "qzhid update --hub 1-3.1 -i new.bin --yes",
               "qzhid update --hub 2E7C:0818 -i new.bin --force",
               "qzhid update --all -i new.bin --jobs 8"});
}

void AddRecoverCommand(CLI::App& app, Host& host) {
  const auto options = std::make_shared<UpdateOptions>();
  options->rules.isRecovery = true;
  CLI::App* command = AddWriter(app, host, "recover",
                                "write a firmware image to hubs that are in their loader", options);
  AddExamples(*command,
              {"qzhid recover --image new.bin", "qzhid recover --hub 1-3.1 -i new.bin --yes"});
}

}  // namespace qzhid
