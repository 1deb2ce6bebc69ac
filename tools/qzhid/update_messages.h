// The messages between the program and the workers that it starts, one for each hub it writes.
//
// A message is one line: a JSON object whose member "message" names its kind, and which has exactly
// the other members that are listed here. Versions are numbers (0x0210 is 2.10), null for a hub in
// its loader. Paths are the hexadecimal digits of their bytes, because they need not be UTF-8.
//
// To the worker, on its standard input:
//
//   job       what it is to do, in the members of WorkerJob
//   retry     sent after "failing": now it tries again. When its input ends instead, it ends.
//
// From the worker, on its standard output:
//
//   waiting   another process writes the hub, and the worker waits for it
//   found     "version": what the hub runs before anything is written
//   progress  "percent": how far the update is
//   state     "version": what the hub runs now
//   away      "what" happened: the worker waits until the hub can be used again
//   failing   "what" failed: the update, which the worker can try again
//   done      the hub runs the image, and whether it had to be "written"; the last message
//   failed    "status": exit status, "what" failed, "next": what to do, "log": the last lines of
//             the log, and whether the hub is "replaced" by another one; the last message
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "qzhid/failure.h"
#include "qzhid/update_rules.h"

namespace qzhid {

/// Why a line is not one of the messages.
class MessageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What a worker is to do.
struct WorkerJob {
  std::string library = {};  ///< path; empty: the one beside the program
  bool isVirtual = false;
  bool isVerbose = false;
  std::string log = {};  ///< path of its own log; empty: none
  std::optional<int> logLevel = {};
  std::string image = {};     ///< path of the copy that was checked
  std::string location = {};  ///< of the hub; empty: the only hub
  UpdateRules rules = {};
  bool staysInLoader = false;
  int retries = 0;
  int patience = 0;           ///< seconds to wait for a hub that has left
  bool isForStation = false;  ///< where hubs are exchanged, and another process is waited for

  bool operator==(const WorkerJob&) const = default;
};

std::string ToLine(const WorkerJob& job);
/// Throws MessageError.
WorkerJob ReadJob(const std::string& line);

/// The "retry" message.
std::string RetryLine();
bool IsRetryLine(const std::string& line);

/// What a hub runs: a version, or none in its loader.
using RunningVersion = std::optional<std::uint16_t>;

struct ReportWaiting {};
struct ReportFound {
  RunningVersion version;
};
struct ReportProgress {
  std::int32_t percent;
};
struct ReportState {
  RunningVersion version;
};
struct ReportAway {
  std::string what;
};
struct ReportFailing {
  std::string what;
};
struct ReportDone {
  bool isWritten;
};
struct ReportFailed {
  Exit status;
  std::string what;
  std::string next;
  std::vector<std::string> log;
  bool isReplaced;
};
using WorkerReport = std::variant<ReportWaiting, ReportFound, ReportProgress, ReportState,
                                  ReportAway, ReportFailing, ReportDone, ReportFailed>;

/// Takes what becomes of the hub.
using Reporter = std::function<void(const WorkerReport&)>;

std::string ToLine(const WorkerReport& report);
/// Throws MessageError.
WorkerReport ReadReport(const std::string& line);

}  // namespace qzhid
