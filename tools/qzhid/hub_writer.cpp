#include "qzhid/hub_writer.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "qzhid/state.h"

namespace qzhid {

namespace {

constexpr std::chrono::milliseconds kBetweenLists{100};

// What went wrong in one try, and the last lines of the log at that time.
struct Trouble {
  std::string what;
  std::vector<std::string> log;
};

std::optional<Hub> FindHub(Host& host, const std::string& location) {
  std::vector<Hub> hubs = ListHubs(host);
  std::erase_if(hubs, [&location](const Hub& hub) {
    return !hub.isOpenable || (!location.empty() && hub.Location() != location);
  });
  if (hubs.size() != 1) return std::nullopt;
  return hubs.front();
}

class Writer {
 public:
  Writer(Host& host, const WorkerJob& job, std::uint16_t version, const Reporter& report)
      : host_(host), job_(job), version_(version), report_(report) {}

  /// Nothing when the hub runs the image, or is where the user wants it.
  std::optional<Trouble> Try(const Hub& hub) const {
    const OpenHub open(host_, hub);
    host_.Api().DllPassPara(job_.staysInLoader ? 1 : 0);
    s_report = &report_;
    const bool isWritten =
        host_.Api().UpdateDev(open.Handle(), job_.image.c_str(), PassProgress) != 0;
    if (!isWritten) return Trouble{"the update failed", host_.LastLogLines()};
    std::uint16_t version = 0;
    const bool isRunning = host_.Api().ReadDevVersion(open.Handle(), &version) != 0;
    report_(ReportState{isRunning ? RunningVersion(version) : std::nullopt});
    if (job_.staysInLoader || (isRunning && version == version_)) return std::nullopt;
    return Trouble{"the image is written, but not started", host_.LastLogLines()};
  }

  Hub AwaitReturn(const Trouble& trouble, const Hub& hub) const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(job_.patience);
    for (;;) {
      if (const auto found = FindHub(host_, job_.location)) return *found;
      if (std::chrono::steady_clock::now() >= end) break;
      std::this_thread::sleep_for(kBetweenLists);
    }
    throw Explain(Exit::HubLost, trouble, hub, ", and the hub has left the bus", kFindHub);
  }

  /// What the hub runs after a try that failed.
  RunningVersion Examine(const Trouble& trouble, const Hub& hub) const {
    try {
      const HubState state = ReadState(host_, hub);
      report_(ReportState{state.version});
      return state.version;
    } catch (const Failure&) {
      throw Explain(Exit::HubLost, trouble, hub, ", and the hub does not answer", kFindHub);
    }
  }

  static Failure Explain(Exit status, const Trouble& trouble, const Hub& hub,
                         const std::string& state, const std::string& next) {
    Failure failure(status, trouble.what + state, hub.Name(), next);
    failure.SetLog(trouble.log);
    return failure;
  }

 private:
  static void PassProgress(std::int32_t percent) { (*s_report)(ReportProgress{percent}); }

  inline static const Reporter* s_report =
      nullptr;  // the library's callback has no argument for it

  Host& host_;
  const WorkerJob& job_;
  std::uint16_t version_;
  const Reporter& report_;
};

}  // namespace

Hub HubAt(Host& host, const std::string& location) {
  if (const auto hub = FindHub(host, location)) return *hub;
  throw Failure(Exit::HubLost, "the hub is gone", location,
                "plug it in again and repeat the command");
}

void WriteHub(Host& host, const WorkerJob& job, const Hub& hub, std::uint16_t version,
              const Reporter& report, const MayRetry& mayRetry) {
  const Writer writer(host, job, version, report);
  Hub now = hub;
  for (int retries = job.retries;; --retries) {
    const auto trouble = writer.Try(now);
    if (!trouble) return;
    now = writer.AwaitReturn(*trouble, now);
    const RunningVersion running = writer.Examine(*trouble, now);
    const std::string state =
        ", and the hub " + (running ? "runs " + VersionText(*running) : "is in its loader");
    if (retries > 0) report(ReportFailing{trouble->what + state});
    if (retries > 0 && mayRetry()) continue;
    if (!running) throw Writer::Explain(Exit::InLoader, *trouble, now, state, RecoverHub(now));
    throw Writer::Explain(Exit::Failed, *trouble, now, state,
                          "repeat the command; with --log FILE the log says why it failed");
  }
}

}  // namespace qzhid
