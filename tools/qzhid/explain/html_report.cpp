#include "qzhid/explain/html_report.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "common/texts.h"
#include "qzhid/explain/job_groups.h"

namespace qzhid {

namespace {

constexpr const char* kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'">
<title>What happened</title>
<style>
:root { color-scheme: light dark; --text: #1b1b1b; --page: #ffffff; --box: #f1f1f1; --good: #1f6b3a; --bad: #b3261e; --wait: #3f6ba6; }
@media (prefers-color-scheme: dark) {
  :root { --text: #e8e8e8; --page: #1b1b1b; --box: #2a2a2a; --good: #7fd6a0; --bad: #ff8a80; --wait: #8fb4e8; }
}
html { background: var(--page); color: var(--text); }
body { font: 16px/1.5 system-ui, sans-serif; max-width: 60rem; margin: 2rem auto; padding: 0 1rem; overflow-wrap: anywhere; }
h1 { font-size: 1.6rem; } h2 { font-size: 1.2rem; margin-top: 2.5rem; }
table { border-collapse: collapse; } th, td { text-align: left; vertical-align: top; padding: .2rem 1rem .2rem 0; }
.verdict, .problem { background: var(--box); padding: .1rem 1rem; border-left: .4rem solid var(--good); }
.verdict { padding: .8rem 1rem; } .verdict.bad, .problem { border-color: var(--bad); }
.job { margin: .6rem 0; } .failed, .unfinished { color: var(--bad); font-weight: bold; } .done { color: var(--good); }
svg { width: 100%; height: 2rem; } rect { fill: var(--good); stroke: var(--page); }
rect.wait { fill: var(--wait); } rect.bad { fill: var(--bad); }
code { font-family: ui-monospace, monospace; }
</style>
</head>
<body>
)";

std::string Element(const std::string& tag, std::string_view text) {
  return "<" + tag + ">" + tools::EscapeHtml(text) + "</" + tag.substr(0, tag.find(' ')) + ">\n";
}

std::string Row(const char* name, const std::string& text) {
  return std::string("<tr><th scope=\"row\">") + name + "</th><td>" + tools::EscapeHtml(text) +
         "</td></tr>\n";
}

/// The steps of a job as bars as long as they took. Times of a log are whole seconds, so that many
/// steps take none; these can be seen, too.
std::string Timeline(const Session& session, const Job& job) {
  constexpr double kWidth = 1000;
  const double shortest =
      session.isCapture ? static_cast<double>(job.end - job.begin) / 100 : 250'000;
  double all = 0;
  for (const StepTime& step : job.steps) {
    all += std::max(shortest, static_cast<double>(step.end - step.begin));
  }
  const Step failed = IsProblem(job) ? FailedStep(job) : Step::None;
  std::string bars;
  double left = 0;
  for (const StepTime& step : job.steps) {
    const double took = static_cast<double>(step.end - step.begin);
    const double width = all > 0 ? std::max(shortest, took) / all * kWidth : 0;
    // Of several steps of a kind the last one failed.
    const bool isLast = std::none_of(&step + 1, job.steps.data() + job.steps.size(),
                                     [&](const StepTime& later) { return later.step == failed; });
    const bool isBad = step.step == failed && isLast;
    const char* const kind = isBad ? "bad" : IsWait(step.step) ? "wait" : "work";
    char place[96] = {};
    std::snprintf(place, sizeof(place), "<rect class=\"%s\" x=\"%.1f\" y=\"4\" width=\"%.1f\" ",
                  kind, left, width);
    bars += std::string(place) + "height=\"26\"><title>" + NameOf(step.step) + ", " +
            DurationText(session, step.end - step.begin) + "</title></rect>\n";
    left += width;
  }
  return "<svg viewBox=\"0 0 1000 34\" preserveAspectRatio=\"none\" role=\"img\" "
         "aria-label=\"Steps of "
         "the call\">\n" +
         bars + "</svg>\n";
}

std::string StepTable(const Session& session, const Job& job) {
  std::string rows;
  for (const StepTime& step : job.steps) {
    rows += "<tr><td>" + TimeText(step.begin) + "</td><td>" + NameOf(step.step) + "</td><td>" +
            DurationText(session, step.end - step.begin) + "</td></tr>\n";
  }
  return "<table>\n<tr><th scope=\"col\">Begin</th><th scope=\"col\">Step</th><th "
         "scope=\"col\">Took</th></tr>\n" +
         rows + "</table>\n";
}

std::string ProblemPart(const Session& session, const Job& job) {
  const Explanation why = Explain(session, job);
  std::string part = "<div class=\"problem\">\n" + Element("p", why.what);
  if (!why.hub.empty()) part += "<p><b>The hub:</b> " + tools::EscapeHtml(why.hub) + "</p>\n";
  if (!why.advice.empty())
    part += "<p><b>What to do:</b> " + tools::EscapeHtml(why.advice) + "</p>\n";
  if (job.trouble) {
    part += std::string("<p>") + (session.isCapture ? "Frame " : "Line ") +
            std::to_string(job.trouble->number) + ": <code>" +
            tools::EscapeHtml(job.trouble->text) + "</code></p>\n";
  }
  return part + "</div>\n";
}

std::string JobPart(const Session& session, const Job& job) {
  const bool isUpdate = job.call == kUpdateCall;
  const std::string name = NameOf(job.result);
  const std::string kind = job.result == Result::Empty ? "empty" : name;
  std::string part = "<div class=\"job\">\n<p>" + TimeText(job.begin) + " <b>" +
                     tools::EscapeHtml(TitleOf(job)) + "</b>: <span class=\"" + kind + "\">" +
                     name + "</span> after " + DurationText(session, job.end - job.begin);
  if (!job.hub.empty()) part += ", hub " + tools::EscapeHtml(job.hub);
  if (job.isInLoader.value_or(false)) {
    part += " in its loader";
  } else if (!job.version.empty()) {
    part += " running " + tools::EscapeHtml(job.version);
  }
  part += "</p>\n";
  if (isUpdate && !job.steps.empty()) part += Timeline(session, job) + StepTable(session, job);
  if (IsProblem(job)) part += ProblemPart(session, job);
  return part + "</div>\n";
}

std::string SessionPart(const Session& session) {
  std::string part =
      Element("h2", "Session from " + TimeText(session.begin) + (session.isCapture ? " UTC" : "")) +
      "<table>\n" +
      Row("File",
          session.file + ", from " + UnitOf(session) + " " + std::to_string(session.firstLine)) +
      Row("Host", HostText(session));
  if (session.isCapture) part += Row("Hub", "at " + AddressesOf(session));
  if (!session.built.empty()) part += Row("Library built", session.built);
  for (const ListedHub& hub : session.hubs) {
    part += Row("Hub", hub.ids + " on port " + std::to_string(hub.port) + ", level " +
                           std::to_string(hub.level));
  }
  if (session.level > 0) {
    part += Row("Level", std::to_string(session.level) + " and above; a log of level 0 says more");
  }
  part += "</table>\n";
  for (const JobGroup& group : GroupJobs(session)) {
    if (group.text.empty()) {
      part += JobPart(session, *group.first);
    } else {
      part += Element("p", TimeText(group.first->begin) + " " + group.text);
    }
  }
  if (session.omittedJobs > 0) {
    part += Element(
        "p", "And " + std::to_string(session.omittedJobs) + " more calls that are not shown.");
  }
  return part;
}

std::string HarmlessPart(const std::vector<LogAccount>& accounts) {
  std::string rows;
  for (const HarmlessLine& each : HarmlessLines(accounts)) {
    rows += "<tr><td><code>" + tools::EscapeHtml(each.text) + "</code></td><td>" +
            std::to_string(each.count) + "</td><td>" + tools::EscapeHtml(each.line->meaning) +
            "</td></tr>\n";
  }
  if (rows.empty()) return "";
  return "<h2>Lines that look like failures and are none</h2>\n<table>\n<tr><th "
         "scope=\"col\">Line</th><th scope=\"col\">Times</th><th "
         "scope=\"col\">Meaning</th></tr>\n" +
         rows + "</table>\n";
}

}  // namespace

std::string HtmlReport(const std::vector<LogAccount>& accounts) {
  const char* const kind =
      CountProblems(accounts) > 0 ? "p class=\"verdict bad\"" : "p class=\"verdict\"";
  std::string page = kHead + Element("h1", "What happened") + Element(kind, Verdict(accounts));
  for (const LogAccount& account : accounts) {
    for (const Session& session : account.sessions) page += SessionPart(session);
    const std::string omitted = OmittedText(account);
    if (!omitted.empty()) page += Element("p", omitted);
  }
  return page + HarmlessPart(accounts) + "</body>\n</html>\n";
}

}  // namespace qzhid
