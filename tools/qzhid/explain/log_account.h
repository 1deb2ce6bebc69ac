// Reads whole logs, and says in words what went wrong in them.
#pragma once

#include <istream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "qzhid/explain/log_jobs.h"
#include "qzhid/explain/log_reader.h"

namespace qzhid {

/// What is known about one log or capture.
struct LogAccount {
  std::string file;
  bool isCapture = false;
  LogShape shape;
  std::vector<Session> sessions;
  std::uint64_t omittedSessions = 0;                 ///< that are not in `sessions`
  std::uint64_t omittedProblems = 0;                 ///< calls that failed and are not there
  std::map<const LogLine*, std::uint64_t> harmless;  ///< lines that look like failures
};

/// Reads a log to its end, of whatever size. `beginning` is what was read of it before. Throws
/// Failure when it is no log of the library.
LogAccount ReadLog(const std::string& file, std::string_view beginning, std::istream& stream);

/// Takes a session that has ended into the account.
void KeepSession(LogAccount& account, Session&& session);

/// Whether something went wrong in the call. A listing that finds nothing has not failed.
bool IsProblem(const Job& job);

/// What a person wants to know about a job in which something went wrong.
struct Explanation {
  std::string what;    ///< "In the step 'write' the request ... failed: ..."
  std::string hub;     ///< what it means for the hub; empty when no hub is concerned
  std::string advice;  ///< what to do
};
Explanation Explain(const Session& session, const Job& job);

/// One sentence on all logs: that nothing went wrong, or what did first.
std::string Verdict(const std::vector<LogAccount>& accounts);

/// The number of calls in which something went wrong.
std::uint64_t CountProblems(const std::vector<LogAccount>& accounts);

/// What a log has more than is kept of it; empty when there is nothing.
std::string OmittedText(const LogAccount& account);

/// A line of the logs that looks like a failure and is none.
struct HarmlessLine {
  const LogLine* line = nullptr;
  std::string text;  ///< as in the log, with %d and the like for what changes
  std::uint64_t count = 0;
};
std::vector<HarmlessLine> HarmlessLines(const std::vector<LogAccount>& accounts);

/// The system that a session ran on, or how it shows.
std::string HostText(const Session& session);

/// "2024-03-07 09:05:02".
std::string TimeText(std::int64_t timeUs);

/// "3 s" of a log, which has no more, and "2.750 s" of a capture.
std::string DurationText(const Session& session, std::int64_t durationUs);

/// Where the hub of a capture was: "1.7, 1.8".
std::string AddressesOf(const Session& session);

/// What the account counts: "line" or "frame".
const char* UnitOf(const Session& session);

}  // namespace qzhid
