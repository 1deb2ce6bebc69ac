#include "qzhid/update_run.h"

#include <algorithm>
#include <fstream>

#include "common/files.h"
#include "qzhid/interrupt.h"
#include "qzhid/options.h"
#include "qzhid/state.h"
#include "qzhid/update_check.h"

namespace qzhid {

namespace {

using State = UpdateJob::State;

constexpr std::size_t kLongestLine = 0x10000;  // of a worker

Failure FromWorker(const UpdateJob& job, const ReportFailed& report) {
  const std::string stopped = InterruptGuard::IsStopWanted() ? "stopped, and " : "";
  Failure failure(report.status, stopped + report.what, job.hub.Name(), report.next);
  failure.SetLog(report.log);
  return failure;
}

// Of a worker that did not report how its job ended, but `did` something else.
Failure WithoutResult(const UpdateJob& job, const std::string& did) {
  return {Exit::HubLost,
          "the process that wrote the hub " + did + ", and the hub's state is unknown",
          job.hub.Name(), kFindHub};
}

Failure NotStarted(const UpdateJob& job) {
  return {Exit::Failed, "stopped before the hub was touched: it runs " + job.from, job.hub.Name(),
          "repeat the command"};
}

std::string TextOf(RunningVersion version) { return HubState{.version = version}.Text(); }

// A copy that nobody else can replace between the check and the writing.
std::string CopyImage(Host& host, const Image& image) {
  try {
    if (host.Temporary().empty()) throw tools::FileError("cannot be made");
    std::string copy = (host.Temporary() / "image.bin").string();
    tools::WriteFile(copy, image.bytes);
    return copy;
  } catch (const tools::FileError& error) {
    throw Failure(Exit::Failed, std::string("a private copy of the image ") + error.what(), "",
                  "free some space in the temporary folder, or choose another one with TMPDIR");
  }
}

}  // namespace

UpdateRun::UpdateRun(Host& host, const UpdateOptions& options, const Image& image,
                     const std::vector<Hub>& hubs)
    : host_(host), options_(options), image_(image), display_(host, options.style) {
  for (const Hub& hub : hubs) {
    jobs_.push_back(UpdateJob{.hub = hub, .progress = Progress(image.bytes.size())});
  }
}

std::size_t UpdateRun::Count(State state) const {
  return static_cast<std::size_t>(std::count_if(
      jobs_.begin(), jobs_.end(), [state](const UpdateJob& job) { return job.state == state; }));
}

std::size_t UpdateRun::Count(Outcome outcome) const {
  return static_cast<std::size_t>(
      std::count_if(jobs_.begin(), jobs_.end(),
                    [outcome](const UpdateJob& job) { return job.outcome == outcome; }));
}

void UpdateRun::Finish(UpdateJob& job, Outcome outcome, const Failure* failure) {
  job.state = State::Done;
  job.outcome = outcome;
  if (failure != nullptr) job.failure = *failure;
  display_.ShowOutcome(job.hub, outcome, job.runs, failure);
}

void UpdateRun::Finish(UpdateJob& job, const Failure& failure) {
  Finish(job, OutcomeOf(failure), &failure);
}

void UpdateRun::Check() {
  const std::size_t attached = ListHubs(host_).size();
  for (UpdateJob& job : jobs_) {
    try {
      Check(job, attached);
    } catch (const Failure& failure) {
      Finish(job, failure);
    }
  }
}

void UpdateRun::Check(UpdateJob& job, std::size_t attached) {
  if (!job.hub.isOpenable) throw NotOpenable(job.hub);
  if (job.hub.locations.empty() && attached > 1) {
    throw Failure(Exit::Failed, "the hub has no location", job.hub.Name(),
                  "unplug the other hubs and repeat the command");
  }
  const HubState state = ReadState(host_, job.hub);
  job.from = job.runs = state.Text();
  if (CheckHub(job.hub, state, image_, options_.rules) == Verdict::Current) {
    Finish(job, Outcome::Current);
  }
}

void UpdateRun::Skip() {
  for (UpdateJob& job : jobs_) {
    if (job.state == State::Ready) Finish(job, Outcome::NotStarted);
  }
}

void UpdateRun::Start(UpdateJob& job, std::size_t number) {
  const Options& settings = host_.Settings();
  if (!settings.log.empty() && !host_.Temporary().empty()) {
    job.log = (host_.Temporary() / ("hub" + std::to_string(number) + ".txt")).string();
  }
  job.worker.emplace("worker");
  job.state = State::Writing;
  job.worker->Write(ToLine(WorkerJob{.library = settings.chosenLibrary,
                                     .isVirtual = settings.isVirtual,
                                     .isVerbose = settings.isVerbose,
                                     .log = job.log,
                                     .logLevel = settings.logLevel,
                                     .image = imageCopy_,
                                     .location = job.hub.Location(),
                                     .rules = options_.rules,
                                     .staysInLoader = options_.staysInLoader,
                                     .retries = options_.retries,
                                     .patience = options_.patience}));
}

void UpdateRun::Write() {
  if (Count(State::Ready) == 0) return;
  imageCopy_ = CopyImage(host_, image_);
  // This process has nothing to do with the hubs any more.
  host_.Release();
  display_.Start(jobs_.size());
  const InterruptGuard guard;
  do {
    StartNext();
    display_.Draw(ShownHubs());
    if (InterruptGuard::TakeInterrupt()) SayInterrupted();
  } while (Listen());
  for (UpdateJob& job : jobs_) {
    if (job.state != State::Ready) continue;
    const Failure failure = NotStarted(job);
    Finish(job, Outcome::NotStarted, &failure);
  }
}

void UpdateRun::StartNext() {
  auto active = static_cast<std::size_t>(std::count_if(
      jobs_.begin(), jobs_.end(), [](const UpdateJob& job) { return job.worker.has_value(); }));
  for (std::size_t i = 0; i < jobs_.size(); ++i) {
    if (active >= options_.jobs || InterruptGuard::IsStopWanted()) return;
    if (jobs_[i].state != State::Ready) continue;
    Start(jobs_[i], i + 1);
    ++active;
  }
}

// Takes what the workers report; false when there is none left.
bool UpdateRun::Listen() {
  std::vector<const Process*> workers;
  for (const UpdateJob& job : jobs_) {
    if (job.worker) workers.push_back(&*job.worker);
  }
  if (workers.empty()) return false;
  Process::AwaitOutput(workers);
  for (UpdateJob& job : jobs_) {
    if (!job.worker) continue;
    const bool goesOn = job.worker->Read(job.heard);
    HearLines(job);
    if (!goesOn) End(job);
  }
  return true;
}

void UpdateRun::HearLines(UpdateJob& job) {
  for (std::size_t end = 0; (end = job.heard.find('\n')) != std::string::npos;) {
    Hear(job, job.heard.substr(0, end));
    job.heard.erase(0, end + 1);
  }
  if (job.heard.size() <= kLongestLine) return;
  job.heard.clear();
  Hear(job, "");
}

// A worker that sends anything else is still writing: only its outcome is unknown.
void UpdateRun::Hear(UpdateJob& job, const std::string& line) {
  try {
    const WorkerReport report = ReadReport(line);
    if (job.state == State::Writing) Take(job, report);
  } catch (const MessageError& error) {
    const std::string reason = error.what();
    Finish(job, WithoutResult(job, "sent an invalid message (" + reason + ")"));
  }
}

void UpdateRun::Take(UpdateJob& job, const WorkerReport& report) {
  if (const auto* progress = std::get_if<ReportProgress>(&report)) {
    if (job.progress.Take(progress->percent)) display_.ShowProgress(job.hub, job.progress);
    if (job.progress.CurrentPhase() >= Phase::Erasing) job.runs = "?";
  } else if (const auto* state = std::get_if<ReportState>(&report)) {
    job.runs = TextOf(state->version);
  } else if (const auto* failing = std::get_if<ReportFailing>(&report)) {
    TakeFailing(job, *failing);
  } else if (const auto* failed = std::get_if<ReportFailed>(&report)) {
    Finish(job, FromWorker(job, *failed));
  } else {
    Finish(job, Outcome::Updated);
  }
}

void UpdateRun::TakeFailing(UpdateJob& job, const ReportFailing& report) {
  if (InterruptGuard::IsStopWanted()) return job.worker->CloseInput();
  job.progress = Progress(image_.bytes.size());
  display_.ShowRetry(job.hub, report.what, ++job.retries, options_.retries);
  job.worker->Write(RetryLine());
}

void UpdateRun::End(UpdateJob& job) {
  const std::string ending = job.worker->Ending();
  job.worker.reset();
  host_.TakeLog(job.log);
  if (job.state == State::Writing) Finish(job, WithoutResult(job, "died (" + ending + ")"));
}

void UpdateRun::SayInterrupted() {
  const bool isOne = jobs_.size() == 1;
  const std::string it = isOne ? "the hub" : "the hubs being written";
  display_.Say("qzhid: " +
               (InterruptGuard::IsStopWanted()
                    ? "stopping as soon as " + it + " can be left"
                    : it +
                          " must not be left now, the update continues; a second Ctrl-C within two "
                          "seconds " +
                          (isOne ? "" : "starts no further hub and ") + "stops as soon as " +
                          (isOne ? "the hub" : "the others") + " can be left"));
}

std::vector<ShownHub> UpdateRun::ShownHubs() const {
  std::vector<ShownHub> shown;
  for (const UpdateJob& job : jobs_) {
    std::string word;
    if (job.state == State::Ready) word = "waiting";
    if (job.state == State::Done && job.outcome != Outcome::Updated) word = NameOf(job.outcome);
    shown.push_back({jobs_.size() == 1 ? "" : job.hub.Name(), &job.progress, word});
  }
  return shown;
}

}  // namespace qzhid
