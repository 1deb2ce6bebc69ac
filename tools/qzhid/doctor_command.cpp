#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "qzhid/bundle/bundle.h"
#include "qzhid/commands.h"
#include "qzhid/doctor.h"
#include "qzhid/options.h"
#include "qzhid/state.h"
#include "virtualhub/scenario/scenario.h"

namespace qzhid {

namespace {

using Findings = std::vector<Finding>;

// The library gives a machine without devices for a scenario that it rejects, so this reads it,
// too.
Finding ExamineScenario() {
  const char* file = std::getenv(virtualhub::kScenarioVariable);
  if (file == nullptr) return {true, "the virtual hubs are the default ones", ""};
  try {
    virtualhub::ReadScenarioFile(file);
    return {true, "the virtual hubs' scenario is accepted", ""};
  } catch (const virtualhub::ScenarioError& error) {
    return {false, std::string("the scenario ") + file + " is rejected: " + error.what(),
            "correct the file that QZ_VIRTUAL_HUB names"};
  }
}

Finding ExamineHub(Host& host, const Hub& hub) {
  const std::string name = "hub " + hub.Name();
  if (!hub.isOpenable) return {false, name + " cannot be opened", NotOpenable(hub).Next()};
  try {
    const HubState state = ReadState(host, hub);
    if (state.version) return {true, name + " runs firmware " + state.Text(), ""};
    return {false, name + " is in its loader", RecoverHub(hub)};
  } catch (const Failure& failure) {
    return {false, name + ": " + failure.what(), failure.Next()};
  }
}

void ExamineHubs(Host& host, Findings& findings) {
  const std::vector<Hub> hubs = ListHubs(host);
  if (hubs.empty()) findings.push_back({true, "no hub is attached", "plug one in to work with it"});
  for (const Hub& hub : hubs) {
    // The others are among the findings about the system.
    if (hub.hasNode) findings.push_back(ExamineHub(host, hub));
  }
}

Findings Examine(Host& host) {
  Findings findings;
  if (!host.IsVirtual()) findings = ExamineSystem();
  try {
    findings.push_back({true, "the library is " + host.Api().path, ""});
  } catch (const Failure& failure) {
    findings.push_back({false, failure.what(), failure.Next()});
    return findings;
  }
  if (host.IsVirtual()) {
    findings.push_back(ExamineScenario());
    if (!findings.back().isFine) return findings;
  }
  ExamineHubs(host, findings);
  return findings;
}

struct Diagnosis {
  nlohmann::ordered_json object;
  std::string text;
  std::ptrdiff_t problems = 0;
};

Diagnosis Describe(const Findings& findings) {
  Diagnosis diagnosis;
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const Finding& finding : findings) {
    list.push_back({{"ok", finding.isFine}, {"what", finding.what}, {"remedy", finding.remedy}});
    diagnosis.text += (finding.isFine ? "ok       " : "PROBLEM  ") + finding.what +
                      (finding.remedy.empty() ? "" : "; " + finding.remedy) + '\n';
  }
  diagnosis.problems = std::count_if(findings.begin(), findings.end(),
                                     [](const Finding& finding) { return !finding.isFine; });
  diagnosis.object = {{"findings", list}, {"problems", diagnosis.problems}};
  return diagnosis;
}

std::string VersionsText(Host& host) {
  std::string text = "qzhid " QZHID_VERSION "\n";
  try {
    text += "library " + host.Api().path + '\n';
    nlohmann::ordered_json hubs = nlohmann::ordered_json::array();
    for (const Hub& hub : ListHubs(host)) hubs.push_back(ToJson(hub));
    text += "hubs " + hubs.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + '\n';
  } catch (const Failure& failure) {
    text += std::string(failure.what()) + '\n';
  }
  return text;
}

/// The log of this run, and the one that the library writes if no host chooses another.
void AddOwnLogs(Host& host, BundleOptions& options) {
  try {
    const std::filesystem::path log =
        std::filesystem::path(host.Api().path).parent_path() / "info.txt";
    std::error_code error;
    if (std::filesystem::is_regular_file(log, error)) options.logs.push_back(log.string());
  } catch (const Failure&) {  // there is no library
  }
  host.Release();  // its log is complete now
  if (!host.Settings().log.empty()) options.logs.push_back(host.Settings().log);
}

/// Adds to the diagnosis what the bundle holds.
void MakeBundle(Host& host, BundleOptions options, Diagnosis& diagnosis) {
  const std::string findings =
      diagnosis.object.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
  const std::vector<ArchiveEntry> known = {{"findings.txt", diagnosis.text},
                                           {"findings.json", findings + '\n'},
                                           {"versions.txt", VersionsText(host)}};
  AddOwnLogs(host, options);
  const std::vector<ArchiveEntry> entries = CollectBundle(options, known);
  WriteBundle(options, entries);
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const ArchiveEntry& entry : entries) {
    list.push_back({{"name", entry.name}, {"size", entry.text.size()}});
  }
  diagnosis.object["bundle"] = {
      {"file", options.file}, {"with_names", options.hasNames}, {"entries", list}};
  diagnosis.text += "the bundle is " + options.file + '\n';
}

void RunDoctor(Host& host, const BundleOptions& options) {
  if (!options.file.empty()) CheckBundle(options);
  Diagnosis diagnosis = Describe(Examine(host));
  if (!options.file.empty()) MakeBundle(host, options, diagnosis);
  host.Report(diagnosis.object, diagnosis.text);
  if (diagnosis.problems > 0) host.SetStatus(Exit::Failed);
}

}  // namespace

void AddDoctorCommand(CLI::App& app, Host& host) {
  CLI::App* command =
      app.add_subcommand("doctor", "find out what keeps hubs from being found or opened");
  const auto options = std::make_shared<BundleOptions>();
  CLI::Option* bundle =
      command
          ->add_option("--bundle", options->file,
                       "write all that support needs to this .zip or .tar.gz file")
          ->option_text("FILE");
  command->add_option("--with-log", options->logs, "add a log of the library")
      ->option_text("FILE ...")
      ->allow_extra_args(false)
      ->take_all()
      ->needs(bundle);
  command
      ->add_flag("--with-names", options->hasNames,
                 "keep serial numbers and the names of users and of the computer")
      ->needs(bundle);
  command->add_flag("-y,--yes", options->isYes, "do not ask")->needs(bundle);
  AddExamples(*command, {"qzhid doctor", "qzhid doctor --json",
                         "qzhid doctor --bundle support.zip --with-log update.log"});
  command->callback([&host, options] { RunDoctor(host, *options); });
}

}  // namespace qzhid
