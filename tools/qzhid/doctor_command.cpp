#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>

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
  if (!host.Settings().isVirtual) findings = ExamineSystem();
  try {
    findings.push_back({true, "the library is " + host.Api().path, ""});
  } catch (const Failure& failure) {
    findings.push_back({false, failure.what(), failure.Next()});
    return findings;
  }
  if (host.Settings().isVirtual) {
    findings.push_back(ExamineScenario());
    if (!findings.back().isFine) return findings;
  }
  ExamineHubs(host, findings);
  return findings;
}

void RunDoctor(Host& host) {
  const Findings findings = Examine(host);
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  std::string text;
  for (const Finding& finding : findings) {
    list.push_back({{"ok", finding.isFine}, {"what", finding.what}, {"remedy", finding.remedy}});
    text += (finding.isFine ? "ok       " : "PROBLEM  ") + finding.what +
            (finding.remedy.empty() ? "" : "; " + finding.remedy) + '\n';
  }
  const auto problems = std::count_if(findings.begin(), findings.end(),
                                      [](const Finding& finding) { return !finding.isFine; });
  host.Report({{"findings", list}, {"problems", problems}}, text);
  if (problems > 0) host.SetStatus(Exit::Failed);
}

}  // namespace

void AddDoctorCommand(CLI::App& app, Host& host) {
  CLI::App* command =
      app.add_subcommand("doctor", "find out what keeps hubs from being found or opened");
  AddExamples(*command, {"qzhid doctor", "qzhid doctor --json", "qzhid doctor --virtual"});
  command->callback([&host] { RunDoctor(host); });
}

}  // namespace qzhid
