// What a log is about: sessions, the calls of the host in them, and what went wrong first.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "qzhid/explain/log_lines.h"

namespace qzhid {

inline constexpr std::int64_t kUsPerSecond = 1'000'000;

// Calls whose lines are read in a way of their own.
inline constexpr const char* kUpdateCall = "QZ_UpdateDev";
inline constexpr const char* kOpenCall = "QZ_OpenHid";
inline constexpr const char* kCloseCall = "QZ_CloseDev";
inline constexpr const char* kReadVersionCall = "QZ_ReadDevVersion";
inline constexpr const char* kReadImageCall = "QZ_ReadBinVersion";
inline constexpr const char* kListCall = "QZ_ListAllHidDev";

/// Whether it is one of the two calls that list devices.
bool IsListing(const std::string& call);

/// A part of a call. Those of an update are in its order.
enum class Step {
  None,
  Image,       ///< load the image file
  Find,        ///< wait until the hub is there
  Mode,        ///< read whether it runs its firmware or its loader
  ToLoader,    ///< reset it into its loader
  LoaderBack,  ///< wait until it is back
  Erase,
  Write,
  Check,
  Start,         ///< reset it into the new firmware
  FirmwareBack,  ///< wait until it is back
  List,
  Clock,    ///< raise the frequency
  Version,  ///< read the version
  Request,  ///< a request of the host's own
  Finish
};

/// As texts and results name it: "wait for the loader".
const char* NameOf(Step step);

/// Whether it waits for the hub.
bool IsWait(Step step);

enum class Result {
  Done,
  Empty,  ///< a listing that found no hub
  Failed,
  Unfinished,  ///< the log ends in the middle of it, or the program did
  Unclear      ///< the log's level does not show it
};

/// As texts and results name it.
const char* NameOf(Result result);

/// A vendor request that failed.
struct LoggedRequest {
  std::uint8_t type = 0, code = 0;
  std::uint16_t value = 0, index = 0;
  std::uint32_t length = 0;
  std::optional<std::uint8_t> target;  ///< of an I2C transfer

  std::uint16_t Key() const { return static_cast<std::uint16_t>(type << 8 | code); }
  std::uint32_t Address() const { return static_cast<std::uint32_t>(index) << 16 | value; }
};

/// What a wait for a hub saw, when the hub did not come.
struct WaitFacts {
  std::uint32_t refused = 0;  ///< requests 40/02
  std::uint32_t closed = 0;   ///< times that a device that may be the hub could not be opened
  std::uint32_t blind = 0;    ///< scans in which the system did not list its devices
  std::string elsewhere;      ///< the location of a hub at another port
  std::string wanted;         ///< and where it should be
};

/// The first thing that went wrong in a call. Times are in microseconds since 1970, here and below.
struct Trouble {
  Step step = Step::None;
  const LogLine* line = nullptr;  ///< of a capture: the one that the library logs then
  std::string text;               ///< of the line, as logged; of a capture: the transfer
  std::uint64_t number = 0;       ///< of the line or frame in the file
  std::int64_t timeUs = 0;
  std::optional<std::uint32_t> code;
  CodeKind codeKind = CodeKind::None;
  bool isAnswer = false;  ///< the request was sent, and its answer not read
  std::optional<LoggedRequest> request;
  WaitFacts wait;
  std::string what;  ///< in a sentence, when only a capture shows it
};

struct StepTime {
  Step step = Step::None;
  std::int64_t begin = 0, end = 0;
};

/// One call of an export.
struct Job {
  std::string call;   ///< the export; empty when the log does not show which
  std::string title;  ///< what a capture shows of another call
  Result result = Result::Unclear;
  std::int64_t begin = 0, end = 0;
  std::uint64_t firstLine = 0, lastLine = 0;
  std::vector<StepTime> steps;
  std::optional<Trouble> trouble;
  bool isDetailed = false;         ///< lines of level 0 are there
  std::string image;               ///< the file of an update
  std::optional<bool> isInLoader;  ///< at the start
  bool hasTwoBanks = false;
  std::string hub;      ///< "2E7C:0818", as the status block or the hub itself says
  std::string version;  ///< that it ran at the start
};

/// The step that failed, or where an unfinished job ends.
Step FailedStep(const Job& job);

/// What a call does, for people: "update". The name of the call itself when there is no other.
std::string TitleOf(const Job& job);

enum class System { Unknown, Windows, Linux };

/// A hub of a list.
struct ListedHub {
  std::string ids;  ///< "2E7C:0818"
  std::uint32_t port = 0, level = 0;

  bool operator==(const ListedHub&) const = default;
};

/// What one process has logged, as far as the log shows where it begins; or what one hub did in a
/// capture, which counts frames instead of lines, in UTC.
struct Session {
  std::string file;
  bool isCapture = false;
  std::vector<std::string> addresses;  ///< of a capture: "1.7", where the hub was
  std::string host;                    ///< the system, as logged; empty if it is not
  std::string built;                   ///< when the library was built
  System system = System::Unknown;
  int level = 3;  ///< of its lines, the lowest
  std::int64_t begin = 0, end = 0;
  std::uint64_t firstLine = 0;
  std::vector<ListedHub> hubs;
  std::vector<Job> jobs;
  std::uint64_t omittedJobs = 0;                     ///< that are not in `jobs`
  std::uint64_t omittedProblems = 0;                 ///< of these, those that failed
  std::map<const LogLine*, std::uint64_t> harmless;  ///< lines that look like failures
};

/// Keeps as many jobs of a log as fit into memory: of those that went well the first ones, and more
/// of the others.
class JobKeeper {
 public:
  void Keep(Session& session, Job&& job);

 private:
  std::uint64_t kept_ = 0;
};

}  // namespace qzhid
