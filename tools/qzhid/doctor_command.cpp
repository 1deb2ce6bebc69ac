#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>

#include "qzhid/commands.h"
#include "qzhid/doctor.h"
#include "qzhid/options.h"
#include "qzhid/process.h"
#include "qzhid/state.h"

namespace qzhid {

namespace {

using Findings = std::vector<Finding>;

// The library says on standard error what is wrong with a scenario, so another process hears it.
Finding ExamineScenario(const Host& host) {
  std::vector<std::string> arguments = host.Arguments("");
  arguments.insert(arguments.end(), {"list", "--quiet"});
  Process listing(arguments, Process::Errors::Taken);
  std::string said;
  while (listing.Read(said)) Process::AwaitOutput({&listing});
  const std::size_t start = said.find("virtualhub: ");
  if (start == std::string::npos) return {true, "the virtual hubs' scenario is accepted", ""};
  return {false, said.substr(start, said.find_first_of("\r\n", start) - start),
          "correct the file that QZ_VIRTUAL_HUB names"};
}

Finding ExamineHub(Host& host, const Hub& hub) {
  const std::string name = "hub " + hub.Name();
  try {
    const HubState state = ReadState(host, hub);
    if (state.version) return {true, name + " runs firmware " + state.Text(), ""};
    return {false, name + " sits in its loader", kRecoverHub};
  } catch (const Failure& failure) {
    return {false, name + ": " + failure.what(), failure.Next()};
  }
}

void ExamineHubs(Host& host, Findings& findings) {
  const std::vector<Hub> closed = ListClosedHubs(host), hubs = ListHubs(host);
  for (const Hub& hub : closed) {
    const Failure failure = NoPermission("");
    findings.push_back({false, "hub " + hub.Name() + " cannot be opened", failure.Next()});
  }
  if (hubs.empty() && closed.empty()) {
    findings.push_back({true, "no hub is attached", "plug one in to work with it"});
  }
  for (const Hub& hub : hubs) findings.push_back(ExamineHub(host, hub));
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
    findings.push_back(ExamineScenario(host));
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
