#include "qzhid/worker_process.h"

#include <filesystem>

#include "common/files.h"
#include "qzhid/state.h"

namespace qzhid {

namespace {

constexpr std::size_t kLongestLine = 0x10000;

class WorkerProcess : public Worker {
 public:
  WorkerProcess(Host& host, const WorkerJob& job) : host_(host), log_(job.log), process_("worker") {
    process_.Write(ToLine(job));
  }

  bool Poll(const Reporter& report) override {
    const bool goesOn = process_.Read(heard_);
    for (std::size_t end = 0; (end = heard_.find('\n')) != std::string::npos;) {
      Hear(heard_.substr(0, end), report);
      heard_.erase(0, end + 1);
    }
    if (heard_.size() > kLongestLine) {
      heard_.clear();
      Hear("", report);
    }
    if (!goesOn) End(report);
    return goesOn;
  }
  void Retry() override { process_.Write(RetryLine()); }
  void GiveUp() override { process_.CloseInput(); }
  const Process* Source() const override { return &process_; }

 private:
  // A worker that sends anything else is still writing: only its outcome is unknown.
  static void Hear(const std::string& line, const Reporter& report) {
    try {
      report(ReadReport(line));
    } catch (const MessageError& error) {
      const std::string reason = error.what();
      report(WithoutResult("sent an invalid message (" + reason + ")"));
    }
  }

  void End(const Reporter& report) {
    const std::string ending = process_.Ending();
    host_.TakeLog(log_);
    report(WithoutResult("died (" + ending + ")"));  // does not count after a result
  }

  static ReportFailed WithoutResult(const std::string& did) {
    return {.status = Exit::HubLost,
            .what = "the process that wrote the hub " + did + ", and the hub's state is unknown",
            .next = kFindHub,
            .log = {},
            .isReplaced = false};
  }

  Host& host_;
  std::string log_;
  Process process_;
  std::string heard_;  ///< the beginning of the next line
};

// A copy that nobody else can replace between the check and the writing.
std::string CopyImage(Host& host, const Image& image) {
  try {
    if (host.Temporary().empty()) throw tools::FileError("cannot be made");
    const std::filesystem::path copy = host.Temporary() / "image.bin";
    // Some systems remove what is old from the temporary folder.
    if (!std::filesystem::exists(copy)) {
      std::filesystem::create_directories(copy.parent_path());
      tools::WriteFile(copy.string(), image.bytes);
    }
    return copy.string();
  } catch (const tools::FileError& error) {
    throw Failure(Exit::Failed, std::string("a private copy of the image ") + error.what(), "",
                  "free some space in the temporary folder, or choose another one with TMPDIR");
  }
}

}  // namespace

std::unique_ptr<Worker> WorkerStarter::Start(const Hub& hub, bool isForStation) {
  const Options& settings = host_.Settings();
  WorkerJob job{.library = settings.chosenLibrary,
                .isVirtual = settings.isVirtual,
                .isVerbose = settings.isVerbose,
                .logLevel = settings.logLevel,
                .image = CopyImage(host_, image_),
                .location = hub.Location(),
                .rules = options_.rules,
                .staysInLoader = options_.staysInLoader,
                .retries = options_.retries,
                .patience = options_.patience,
                .isForStation = isForStation};
  if (!settings.log.empty() && !host_.Temporary().empty()) {
    job.log = (host_.Temporary() / ("hub" + std::to_string(++started_) + ".txt")).string();
  }
  return std::make_unique<WorkerProcess>(host_, job);
}

}  // namespace qzhid
