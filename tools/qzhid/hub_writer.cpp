#include "qzhid/hub_writer.h"

#include <algorithm>
#include <utility>

#include "qzhid/await_hub.h"
#include "qzhid/progress.h"
#include "qzhid/state.h"
#include "qzhid/update_check.h"

namespace qzhid {

namespace {

constexpr int kMostLooks = 2;
// The library reports an erase and the first piece as done before it notices that the hub has left.
constexpr std::int32_t kPerhapsErased = Progress::kErased + 1;

// What went wrong in one try, and the last lines of the log at that time.
struct Trouble {
  std::string what;
  std::vector<std::string> log;
  bool isWritten = false;  ///< the library has written and checked the image
};

// The hub at the port, as far as it is there, can be opened and answers.
struct Sight : AwaitedHub {
  std::optional<HubState> state{};
};

class Writer {
 public:
  Writer(Host& host, const WorkerJob& job, const Image& image, Clock& clock, const Reporter& report)
      : host_(host), job_(job), image_(image), clock_(clock), report_(report) {}

  /// Waits for the hub, also one that leaves while it is asked; `trouble` is why it may be away.
  Sight Look(const std::string& trouble) const {
    Sight sight;
    for (int looks = 0; looks < kMostLooks && !sight.state; ++looks) {
      const AwaitedHub awaited =
          AwaitHub(host_, clock_, job_.location, std::chrono::seconds(job_.patience),
                   [&] { report_(ReportAway{trouble}); });
      sight.hub = awaited.hub;
      sight.away = std::max(sight.away, awaited.away);
      if (!sight.hub || !sight.hub->isOpenable) break;
      try {
        sight.state = ReadState(host_, *sight.hub);
      } catch (const Failure&) {  // the caller says so
      }
    }
    return sight;
  }

  /// Takes what the hub runs before the first try.
  void Begin(RunningVersion version) { before_ = version; }

  /// Nothing when the hub runs the image, or is where the user wants it.
  std::optional<Trouble> Try(const Hub& hub) {
    try {
      return Write(hub);
    } catch (const Failure& failure) {
      return Trouble{failure.what(), host_.LastLogLines()};
    }
  }

  /// Throws HubReplaced when the hub that is at the port after a try cannot be the one before.
  void CheckReturn(const Trouble& trouble, const Hub& before, const Sight& sight) const {
    // When the flash is erased, a hub runs nothing but the whole image. A hub with two banks is
    // taken for another one here, which costs a record; the other way round, a hub would be left
    // half written.
    const auto version = sight.state->version;
    const bool hasImage = version == image_.version;
    const bool isPossible =
        !version || (percent_ <= kPerhapsErased && (!hasImage || before_ == image_.version)) ||
        (percent_ >= Progress::kWritten && hasImage);
    bool isOther = job_.isForStation && sight.away >= kUnplugged && !isPossible;
    try {
      CheckHub(*sight.hub, *sight.state, image_,
               {.takesLoader = true, .isForced = job_.rules.isForced, .allowsOlder = true});
    } catch (const Failure&) {
      isOther = true;
    }
    if (!isOther) return;
    throw HubReplaced(Exit::HubLost, trouble.what + ", and another hub has taken its place",
                      before.Name(), kFindHub);
  }

  /// Whether the hub runs the image after a try that failed: it may have come back only after the
  /// library had stopped waiting for it.
  bool RunsImage(const Trouble& trouble, const Sight& sight) const {
    return sight.state->version == image_.version &&
           (trouble.isWritten || before_ != image_.version);
  }
  bool HasWritten() const { return percent_ >= Progress::kWritten; }

 private:
  std::optional<Trouble> Write(const Hub& hub) {
    const OpenHub open(host_, hub);
    host_.Api().DllPassPara(job_.staysInLoader ? 1 : 0);
    s_writer = this;
    const bool isWritten =
        host_.Api().UpdateDev(open.Handle(), job_.image.c_str(), PassProgress) != 0;
    if (!isWritten) return Trouble{"the update failed", host_.LastLogLines()};
    std::uint16_t version = 0;
    const bool isRunning = host_.Api().ReadDevVersion(open.Handle(), &version) != 0;
    report_(ReportState{isRunning ? RunningVersion(version) : std::nullopt});
    if (job_.staysInLoader || (isRunning && version == image_.version)) return std::nullopt;
    return Trouble{"the image is written, but not started", host_.LastLogLines(), true};
  }

  // The library's callback has no argument for the writer.
  static void PassProgress(std::int32_t percent) {
    s_writer->percent_ = std::max(s_writer->percent_, percent);
    s_writer->report_(ReportProgress{percent});
  }
  inline static Writer* s_writer = nullptr;

  Host& host_;
  const WorkerJob& job_;
  const Image& image_;
  Clock& clock_;
  const Reporter& report_;
  std::int32_t percent_ = 0;  ///< the most that was reported in all tries
  RunningVersion before_{};   ///< what the hub ran before the first one
};

Failure Explain(Exit status, const Trouble& trouble, const Hub& hub, const std::string& state,
                const std::string& next) {
  Failure failure(status, trouble.what + state, hub.Name(), next);
  failure.SetLog(trouble.log);
  return failure;
}

Sight LookFirst(const Writer& writer, const WorkerJob& job) {
  constexpr const char* kNext = "unplug it, plug it in again and repeat the command";
  Sight sight = writer.Look("it does not answer");
  if (!sight.hub) throw Failure(Exit::HubLost, "the hub is gone", job.location, kNext);
  if (!sight.hub->isOpenable) throw NotOpenable(*sight.hub);
  if (!sight.state) {
    throw Failure(Exit::HubLost, "the hub does not answer", sight.hub->Name(), kNext);
  }
  return sight;
}

Sight LookAgain(const Writer& writer, const Trouble& trouble, const Hub& before) {
  Sight sight = writer.Look(trouble.what);
  if (!sight.hub) {
    throw Explain(Exit::HubLost, trouble, before, ", and the hub has left the bus", kFindHub);
  }
  if (!sight.hub->isOpenable) {
    const Failure why = NotOpenable(*sight.hub);
    throw Explain(Exit::HubLost, trouble, *sight.hub, std::string(", and ") + why.what(),
                  why.Next());
  }
  if (!sight.state) {
    throw Explain(Exit::HubLost, trouble, *sight.hub, ", and the hub does not answer", kFindHub);
  }
  return sight;
}

}  // namespace

void WriteHub(Host& host, const WorkerJob& job, const Image& image, Clock& clock,
              const Reporter& report, const MayRetry& mayRetry) {
  Writer writer(host, job, image, clock, report);
  Sight sight = LookFirst(writer, job);
  report(ReportFound{sight.state->version});
  // The hub may be another one than when the user was asked.
  if (CheckHub(*sight.hub, *sight.state, image, job.rules) == Verdict::Current) {
    return report(ReportDone{false});
  }
  writer.Begin(sight.state->version);
  for (int retries = job.retries;; --retries) {
    const auto trouble = writer.Try(*sight.hub);
    if (!trouble) return report(ReportDone{true});
    const Hub before = *sight.hub;
    sight = LookAgain(writer, *trouble, before);
    writer.CheckReturn(*trouble, before, sight);
    const RunningVersion running = sight.state->version;
    report(ReportState{running});
    if (writer.RunsImage(*trouble, sight)) return report(ReportDone{writer.HasWritten()});
    const std::string state =
        ", and the hub " + (running ? "runs " + VersionText(*running) : "is in its loader");
    if (retries > 0) report(ReportFailing{trouble->what + state});
    if (retries > 0 && mayRetry()) continue;
    if (!running)
      throw Explain(Exit::InLoader, *trouble, *sight.hub, state, RecoverHub(*sight.hub));
    throw Explain(Exit::Failed, *trouble, *sight.hub, state,
                  "repeat the command; with --log FILE the log says why it failed");
  }
}

}  // namespace qzhid
