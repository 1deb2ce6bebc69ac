#include "qzhid/update_messages.h"

#include <limits>
#include <nlohmann/json.hpp>

#include "common/texts.h"

namespace qzhid {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::int32_t kMostPercent = 100;

// What a hub says of itself may hold anything; a message is UTF-8 all the same.
std::string Line(const Json& message) {
  return message.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

std::string PathText(const std::string& path) {
  return tools::HexText(tools::Bytes(path.begin(), path.end()));
}

// The members of one message. Every function throws MessageError.
class Members {
 public:
  explicit Members(const std::string& line) : message_(Json::parse(line, nullptr, false)) {
    if (!message_.is_object()) throw MessageError("it is not a JSON object");
    kind_ = Take<std::string>("message");
  }

  const std::string& Kind() const { return kind_; }

  template <typename T>
  T Take(const char* name) {
    const Json value = TakeValue(name);
    try {
      return value.get<T>();
    } catch (const Json::exception&) {
      throw MessageError("its member \"" + std::string(name) + "\" is of the wrong type");
    }
  }
  template <typename T>
  std::optional<T> TakeOptional(const char* name) {
    const auto found = message_.find(name);
    if (found == message_.end() || !found->is_null()) return TakeNumber<T>(name);
    message_.erase(found);
    return std::nullopt;
  }
  template <typename T>
  T TakeNumber(const char* name, std::int64_t most = std::numeric_limits<T>::max()) {
    const Json value = TakeValue(name);
    const bool isInRange = value.is_number_integer() && value.get<std::int64_t>() >= 0 &&
                           value.get<std::int64_t>() <= most;
    if (!isInRange) {
      throw MessageError("its member \"" + std::string(name) + "\" is not a number in its range");
    }
    return value.get<T>();
  }
  std::string TakePath(const char* name) {
    const auto bytes = tools::ParseHexBytes(Take<std::string>(name));
    if (!bytes) throw MessageError("its member \"" + std::string(name) + "\" is not a path");
    return {bytes->begin(), bytes->end()};
  }

  void RejectOthers() const {
    if (!message_.empty()) {
      throw MessageError("it has an unknown member \"" + message_.begin().key() + "\"");
    }
  }

 private:
  Json TakeValue(const char* name) {
    const auto found = message_.find(name);
    if (found == message_.end()) throw MessageError("it has no \"" + std::string(name) + "\"");
    Json value = *found;
    message_.erase(found);
    return value;
  }

  Json message_;
  std::string kind_;
};

Json VersionValue(RunningVersion version) { return version ? Json(*version) : Json(); }

Json ToJson(const ReportWaiting&) { return {{"message", "waiting"}}; }
Json ToJson(const ReportFound& report) {
  return {{"message", "found"}, {"version", VersionValue(report.version)}};
}
Json ToJson(const ReportProgress& report) {
  return {{"message", "progress"}, {"percent", report.percent}};
}
Json ToJson(const ReportState& report) {
  return {{"message", "state"}, {"version", VersionValue(report.version)}};
}
Json ToJson(const ReportAway& report) { return {{"message", "away"}, {"what", report.what}}; }
Json ToJson(const ReportFailing& report) { return {{"message", "failing"}, {"what", report.what}}; }
Json ToJson(const ReportDone& report) {
  return {{"message", "done"}, {"written", report.isWritten}};
}
Json ToJson(const ReportFailed& report) {
  return {{"message", "failed"}, {"status", static_cast<int>(report.status)},
          {"what", report.what}, {"next", report.next},
          {"log", report.log},   {"replaced", report.isReplaced}};
}

ReportFailed TakeFailed(Members& members) {
  const auto status = members.TakeNumber<int>("status", static_cast<int>(Exit::InLoader));
  if (status == static_cast<int>(Exit::Done)) throw MessageError("its status is not a failure");
  return {static_cast<Exit>(status), members.Take<std::string>("what"),
          members.Take<std::string>("next"), members.Take<std::vector<std::string>>("log"),
          members.Take<bool>("replaced")};
}

WorkerReport TakeReport(Members& members) {
  const std::string& kind = members.Kind();
  if (kind == "waiting") return ReportWaiting{};
  if (kind == "found") return ReportFound{members.TakeOptional<std::uint16_t>("version")};
  if (kind == "progress") {
    return ReportProgress{members.TakeNumber<std::int32_t>("percent", kMostPercent)};
  }
  if (kind == "state") return ReportState{members.TakeOptional<std::uint16_t>("version")};
  if (kind == "away") return ReportAway{members.Take<std::string>("what")};
  if (kind == "failing") return ReportFailing{members.Take<std::string>("what")};
  if (kind == "done") return ReportDone{members.Take<bool>("written")};
  if (kind == "failed") return TakeFailed(members);
  throw MessageError("\"" + kind + "\" is not a kind of report");
}

}  // namespace

std::string ToLine(const WorkerJob& job) {
  return Line({{"message", "job"},
               {"library", PathText(job.library)},
               {"virtual", job.isVirtual},
               {"verbose", job.isVerbose},
               {"log", PathText(job.log)},
               {"log_level", job.logLevel ? Json(*job.logLevel) : Json()},
               {"image", PathText(job.image)},
               {"location", job.location},
               {"recover", job.rules.isRecovery},
               {"take_loader", job.rules.takesLoader},
               {"force", job.rules.isForced},
               {"allow_older", job.rules.allowsOlder},
               {"stay_in_loader", job.staysInLoader},
               {"retries", job.retries},
               {"patience", job.patience},
               {"station", job.isForStation}});
}

WorkerJob ReadJob(const std::string& line) {
  Members members(line);
  if (members.Kind() != "job") throw MessageError("it is not a job");
  WorkerJob job;
  job.library = members.TakePath("library");
  job.isVirtual = members.Take<bool>("virtual");
  job.isVerbose = members.Take<bool>("verbose");
  job.log = members.TakePath("log");
  job.logLevel = members.TakeOptional<int>("log_level");
  job.image = members.TakePath("image");
  job.location = members.Take<std::string>("location");
  job.rules.isRecovery = members.Take<bool>("recover");
  job.rules.takesLoader = members.Take<bool>("take_loader");
  job.rules.isForced = members.Take<bool>("force");
  job.rules.allowsOlder = members.Take<bool>("allow_older");
  job.staysInLoader = members.Take<bool>("stay_in_loader");
  job.retries = members.TakeNumber<int>("retries");
  job.patience = members.TakeNumber<int>("patience");
  job.isForStation = members.Take<bool>("station");
  members.RejectOthers();
  return job;
}

std::string RetryLine() { return Line({{"message", "retry"}}); }

bool IsRetryLine(const std::string& line) { return line + '\n' == RetryLine(); }

std::string ToLine(const WorkerReport& report) {
  return Line(std::visit([](const auto& kind) { return ToJson(kind); }, report));
}

WorkerReport ReadReport(const std::string& line) {
  Members members(line);
  WorkerReport report = TakeReport(members);
  members.RejectOthers();
  return report;
}

}  // namespace qzhid
