#include "qzhid/explain/json_report.h"

#include "qzhid/explain/error_names.h"
#include "qzhid/explain/request_names.h"
#include "qzhid/host.h"

namespace qzhid {

namespace {

using Json = nlohmann::ordered_json;

const char* NameOf(System system) {
  constexpr std::array kNames{"unknown", "windows", "linux"};
  return kNames[static_cast<std::size_t>(system)];
}

/// Null for a log, which has no more than seconds.
Json Milliseconds(const Session& session, std::int64_t durationUs) {
  return session.isCapture ? Json(durationUs / 1000) : Json();
}

Json ToJson(const LoggedRequest& request) {
  return {{"request", CodeOf(request)},
          {"meaning", OrNull(MeaningOf(request))},
          {"value", request.value},
          {"index", request.index},
          {"address", request.Address()},
          {"length", request.length},
          {"target", request.target ? Json(*request.target) : Json()}};
}

Json ProblemToJson(const Session& session, const Job& job) {
  if (!IsProblem(job)) return {};
  const Explanation why = Explain(session, job);
  Json problem = {{"step", NameOf(FailedStep(job))},
                  {"what", why.what},
                  {"hub", why.hub},
                  {"advice", why.advice},
                  {"line", nullptr},
                  {"text", nullptr},
                  {"code", nullptr},
                  {"code_name", nullptr},
                  {"request", nullptr}};
  if (!job.trouble) return problem;
  const Trouble& trouble = *job.trouble;
  problem["line"] = trouble.number;
  problem["text"] = trouble.text;
  if (trouble.code) {
    problem["code"] = *trouble.code;
    problem["code_name"] = OrNull(ErrorName(session.system, trouble.codeKind, *trouble.code));
  }
  if (trouble.request) problem["request"] = ToJson(*trouble.request);
  return problem;
}

Json ToJson(const Session& session, const Job& job) {
  Json steps = Json::array();
  for (const StepTime& step : job.steps) {
    steps.push_back({{"step", NameOf(step.step)},
                     {"begin", TimeText(step.begin)},
                     {"seconds", (step.end - step.begin) / kUsPerSecond},
                     {"milliseconds", Milliseconds(session, step.end - step.begin)}});
  }
  return {{"call", OrNull(job.call)},
          {"title", TitleOf(job)},
          {"result", NameOf(job.result)},
          {"begin", TimeText(job.begin)},
          {"seconds", (job.end - job.begin) / kUsPerSecond},
          {"milliseconds", Milliseconds(session, job.end - job.begin)},
          {"first_line", job.firstLine},
          {"last_line", job.lastLine},
          {"hub", OrNull(job.hub)},
          {"version", job.isInLoader.value_or(false) ? Json() : OrNull(job.version)},
          {"in_loader", job.isInLoader ? Json(*job.isInLoader) : Json()},
          {"image", OrNull(job.image)},
          {"steps", steps},
          {"problem", ProblemToJson(session, job)}};
}

Json ToJson(const Session& session) {
  Json hubs = Json::array(), jobs = Json::array();
  for (const ListedHub& hub : session.hubs) {
    hubs.push_back({{"ids", hub.ids}, {"level", hub.level}, {"port", hub.port}});
  }
  for (const Job& job : session.jobs) jobs.push_back(ToJson(session, job));
  return {{"begin", TimeText(session.begin)},
          {"end", TimeText(session.end)},
          {"first_line", session.firstLine},
          {"host", OrNull(session.host)},
          {"system", NameOf(session.system)},
          {"library_built", OrNull(session.built)},
          {"level", session.level},
          {"hubs", hubs},
          {"addresses", session.addresses},
          {"jobs", jobs},
          {"omitted_jobs", session.omittedJobs}};
}

Json ToJson(const LogAccount& account) {
  Json sessions = Json::array();
  for (const Session& session : account.sessions) sessions.push_back(ToJson(session));
  return {{"file", account.file},
          {"kind", account.isCapture ? "capture" : "log"},
          {"lines", account.shape.events},
          {"unknown_lines", account.shape.unknown},
          {"cut_at_start", account.shape.isCutAtStart},
          {"cut_at_end", account.shape.isCutAtEnd},
          {"sessions", sessions},
          {"omitted_sessions", account.omittedSessions},
          {"omitted_problems", account.omittedProblems}};
}

}  // namespace

Json JsonReport(const std::vector<LogAccount>& accounts) {
  Json logs = Json::array(), harmless = Json::array();
  for (const LogAccount& account : accounts) logs.push_back(ToJson(account));
  for (const HarmlessLine& each : HarmlessLines(accounts)) {
    harmless.push_back(
        {{"text", each.text}, {"count", each.count}, {"meaning", each.line->meaning}});
  }
  return {{"logs", logs},
          {"harmless", harmless},
          {"problems", CountProblems(accounts)},
          {"verdict", Verdict(accounts)}};
}

}  // namespace qzhid
