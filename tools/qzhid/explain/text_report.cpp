#include "qzhid/explain/text_report.h"

#include <cstdio>

#include "qzhid/explain/job_groups.h"

namespace qzhid {

namespace {

std::string HeaderOf(const Session& session) {
  std::string text = "session from " + TimeText(session.begin) + " to " + TimeText(session.end) +
                     (session.isCapture ? " UTC, " : ", ") + UnitOf(session) + " " +
                     std::to_string(session.firstLine) + " on\n";
  text += "  host     " + HostText(session) + '\n';
  if (session.isCapture) text += "  hub      at " + AddressesOf(session) + '\n';
  if (!session.built.empty()) text += "  library  built " + session.built + '\n';
  for (const ListedHub& hub : session.hubs) {
    text += "  hub      " + hub.ids + " on port " + std::to_string(hub.port) + ", level " +
            std::to_string(hub.level) + '\n';
  }
  if (session.level > 0) {
    text +=
        "  level    " + std::to_string(session.level) + " and above; a log of level 0 says more\n";
  }
  return text;
}

std::string ClockText(std::int64_t timeUs) { return TimeText(timeUs).substr(11); }

std::string StepsOf(const Session& session, const Job& job) {
  std::string text;
  for (const StepTime& step : job.steps) {
    if (!text.empty()) text += ", ";
    text += NameOf(step.step);
    text += " " + DurationText(session, step.end - step.begin);
  }
  return text;
}

std::string FactsOf(const Job& job) {
  std::string text;
  if (!job.hub.empty()) text += ", hub " + job.hub;
  if (!job.version.empty()) {
    text += job.isInLoader.value_or(false) ? " in its loader" : " running " + job.version;
  }
  if (job.hasTwoBanks) text += ", two banks";
  return text;
}

std::string ProblemOf(const Session& session, const Job& job) {
  const Explanation why = Explain(session, job);
  std::string text = "      what    " + why.what + '\n';
  if (!why.hub.empty()) text += "      hub     " + why.hub + '\n';
  if (!why.advice.empty()) text += "      to do   " + why.advice + '\n';
  if (job.trouble) {
    char unit[16] = {};
    std::snprintf(unit, sizeof(unit), "      %-8s", UnitOf(session));
    text += unit + std::to_string(job.trouble->number) + ": " + job.trouble->text + '\n';
  }
  return text;
}

std::string TextOf(const Session& session, const Job& job) {
  std::string text = "  " + ClockText(job.begin) + "  " + TitleOf(job) + ": " + NameOf(job.result) +
                     " after " + DurationText(session, job.end - job.begin) + FactsOf(job) + '\n';
  if (job.call == kUpdateCall && !job.steps.empty()) {
    text += "      steps   " + StepsOf(session, job) + '\n';
  }
  return IsProblem(job) ? text + ProblemOf(session, job) : text;
}

std::string JobsOf(const Session& session) {
  std::string text;
  for (const JobGroup& group : GroupJobs(session)) {
    if (group.text.empty()) {
      text += TextOf(session, *group.first);
    } else {
      text += "  " + ClockText(group.first->begin) + "  " + group.text + '\n';
    }
  }
  if (session.omittedJobs > 0) {
    text += "  and " + std::to_string(session.omittedJobs) + " more that are not shown\n";
  }
  return text;
}

std::string HarmlessOf(const std::vector<LogAccount>& accounts) {
  std::string text;
  for (const HarmlessLine& each : HarmlessLines(accounts)) {
    text += "  \"" + each.text + "\", " + std::to_string(each.count) +
            (each.count == 1 ? " time: " : " times: ") + each.line->meaning + '\n';
  }
  return text.empty() ? "" : "lines that look like failures and are none:\n" + text;
}

std::string ShapeOf(const LogAccount& account) {
  const LogShape& shape = account.shape;
  std::string text = account.file + ": " + std::to_string(shape.events) +
                     (account.isCapture ? " frames" : " lines");
  if (shape.isCutAtStart) text += ", cut at the start";
  if (shape.isCutAtEnd) text += ", cut at the end";
  if (shape.unknown > 0 && account.isCapture) {
    text += ", " + std::to_string(shape.unknown) + " requests that no hub knows";
  } else if (shape.unknown > 0) {
    text += ", " + std::to_string(shape.unknown) + " of them of another release of the library";
  }
  return text + '\n';
}

}  // namespace

std::string TextReport(const std::vector<LogAccount>& accounts) {
  std::string text;
  for (const LogAccount& account : accounts) {
    text += ShapeOf(account);
    for (const Session& session : account.sessions) text += HeaderOf(session) + JobsOf(session);
    const std::string omitted = OmittedText(account);
    if (!omitted.empty()) text += omitted + '\n';
  }
  return text + HarmlessOf(accounts) + Verdict(accounts) + '\n';
}

}  // namespace qzhid
