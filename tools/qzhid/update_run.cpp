#include "qzhid/update_run.h"

#include <algorithm>
#include <iostream>

#include "qzhid/interrupt.h"
#include "qzhid/options.h"
#include "qzhid/state.h"
#include "qzhid/system.h"

namespace qzhid {

namespace {

using State = UpdateJob::State;

constexpr std::size_t kLongestLine = 0x10000;  // of a worker

// How another process finds the hub: instance numbers may mean nothing there.
std::string LocationFor(const Hub& hub, const std::vector<Hub>& attached) {
  const auto same = std::count_if(attached.begin(), attached.end(), [&hub](const Hub& other) {
    return other.Location() == hub.Location();
  });
  if (same == 0) throw NoPermission(hub.Name());
  if (same == 1 && (!hub.Location().empty() || attached.size() == 1)) return hub.Location();
  throw Failure(Exit::Failed, "other hubs have the same location", hub.Name(),
                "unplug the other hubs and repeat the command");
}

Failure FromWorker(const UpdateJob& job, const ReportFailed& report) {
  const std::string stopped = InterruptGuard::IsStopWanted() ? "stopped, and " : "";
  Failure failure(report.status, stopped + report.what, job.hub.Name(), report.next);
  failure.SetLog(report.log);
  return failure;
}

// Of a worker that did not report how its job ended, but `did` something else.
Failure WithoutResult(const UpdateJob& job, const std::string& did) {
  if (job.state == State::Writing) {
    return {Exit::HubLost,
            "the process that wrote the hub " + did + ", and the hub's state is unknown",
            job.hub.Name(), kFindHub};
  }
  return {Exit::Failed, "the process for the hub " + did + " before anything was written",
          job.hub.Name(), "repeat the command"};
}

std::string TextOf(RunningVersion version) { return HubState{.version = version}.Text(); }

// Whether a worker may report that while its job is in that state.
bool IsInTurn(State state, const WorkerReport& report) {
  if (std::holds_alternative<ReportFailed>(report)) return state != State::Done;
  const bool isOfCheck =
      std::holds_alternative<ReportBefore>(report) || std::holds_alternative<ReportReady>(report);
  return state == (isOfCheck ? State::Checking : State::Writing);
}

}  // namespace

UpdateRun::UpdateRun(Host& host, const UpdateOptions& options, const Image& image,
                     const std::vector<Hub>& hubs)
    : host_(host), options_(options), image_(image) {
  const std::vector<Hub> attached = ListHubs(host);
  for (const Hub& hub : hubs) {
    UpdateJob& job = jobs_.emplace_back(UpdateJob{.hub = hub, .progress = Progress(image.size)});
    try {
      job.location = LocationFor(hub, attached);
    } catch (const Failure& failure) {
      job.failure = failure;
      job.state = State::Failed;
    }
  }
}

std::size_t UpdateRun::Count(State state) const {
  return static_cast<std::size_t>(std::count_if(
      jobs_.begin(), jobs_.end(), [state](const UpdateJob& job) { return job.state == state; }));
}

void UpdateRun::Start(UpdateJob& job, std::size_t number) {
  const Options& settings = host_.Settings();
  if (!settings.log.empty() && !host_.Temporary().empty()) {
    job.log = (host_.Temporary() / ("hub" + std::to_string(number) + ".txt")).string();
  }
  job.worker.emplace("worker");
  job.worker->Write(ToLine(WorkerJob{.library = settings.chosenLibrary,
                                     .isVirtual = settings.isVirtual,
                                     .isVerbose = settings.isVerbose,
                                     .log = job.log,
                                     .logLevel = settings.logLevel,
                                     .image = image_.path,
                                     .location = job.location,
                                     .isRecovery = options_.isRecovery,
                                     .isForced = options_.isForced,
                                     .isReinstall = options_.isReinstall,
                                     .staysInLoader = options_.staysInLoader}));
}

void UpdateRun::Check() {
  // This process has nothing to do with the hubs any more.
  host_.Release();
  for (std::size_t i = 0; i < jobs_.size(); ++i) {
    if (jobs_[i].state == State::Checking) Start(jobs_[i], i + 1);
  }
  while (Count(State::Checking) > 0) Listen();
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
  Distrust(job, "it has no end");
}

void UpdateRun::Hear(UpdateJob& job, const std::string& line) {
  try {
    const WorkerReport report = ReadReport(line);
    if (job.state == State::Failed) return;
    if (!IsInTurn(job.state, report)) throw MessageError("it is out of turn");
    Take(job, report);
  } catch (const MessageError& error) {
    Distrust(job, error.what());
  }
}

// A worker that is writing continues; any other one ends without having touched its hub.
void UpdateRun::Distrust(UpdateJob& job, const std::string& reason) {
  if (job.state == State::Failed) return;
  job.failure = WithoutResult(job, "sent an invalid message (" + reason + ")");
  if (job.state != State::Writing) job.worker->CloseInput();
  job.state = State::Failed;
}

void UpdateRun::Take(UpdateJob& job, const WorkerReport& report) {
  if (const auto* before = std::get_if<ReportBefore>(&report)) {
    job.from = job.runs = TextOf(before->version);
  } else if (const auto* progress = std::get_if<ReportProgress>(&report)) {
    if (job.progress.Take(progress->percent)) ShowProgress(job);
    if (job.progress.CurrentPhase() >= Phase::Erasing) job.runs = "?";
  } else if (const auto* after = std::get_if<ReportAfter>(&report)) {
    job.runs = TextOf(after->version);
  } else if (const auto* failed = std::get_if<ReportFailed>(&report)) {
    job.failure = FromWorker(job, *failed);
    job.state = State::Failed;
  } else {
    job.state = std::holds_alternative<ReportReady>(report) ? State::Ready : State::Done;
  }
}

void UpdateRun::ShowProgress(const UpdateJob& job) const {
  if (isLive_ || host_.Settings().isQuiet) return;
  std::cerr << "hub " + job.hub.Name() + ": " + job.progress.Text() + '\n' << std::flush;
}

void UpdateRun::End(UpdateJob& job) {
  const std::string ending = job.worker->Ending();
  job.worker.reset();
  host_.TakeLog(job.log);
  if (job.state == State::Done || job.state == State::Failed) return;
  job.failure = WithoutResult(job, "died (" + ending + ")");
  job.state = State::Failed;
}

void UpdateRun::Write() {
  const system::TerminalSize terminal = system::DrawableTerminal();
  isLive_ =
      !host_.Settings().isQuiet && host_.IsColourful() && Count(State::Ready) < terminal.lines;
  const InterruptGuard guard;
  do {
    StartNext();
    Draw();
    if (InterruptGuard::TakeInterrupt()) SayInterrupted();
    if (InterruptGuard::IsStopWanted()) LeaveOthers();
  } while (Listen());
}

void UpdateRun::StartNext() {
  std::size_t active = Count(State::Writing);
  for (UpdateJob& job : jobs_) {
    if (active >= options_.jobs || InterruptGuard::IsStopWanted()) return;
    if (job.state != State::Ready) continue;
    job.state = State::Writing;
    job.worker->Write(WriteLine());
    ++active;
  }
}

void UpdateRun::LeaveOthers() {
  for (UpdateJob& job : jobs_) {
    if (job.state != State::Ready) continue;
    job.worker->CloseInput();
    job.failure = Failure(Exit::Failed, "stopped before the hub was touched: it runs " + job.from,
                          job.hub.Name(), "repeat the command");
    job.state = State::Failed;
  }
}

void UpdateRun::SayInterrupted() {
  const bool isOne = jobs_.size() == 1;
  const std::string it = isOne ? "the hub" : "the hubs being written";
  const std::string text =
      InterruptGuard::IsStopWanted()
          ? "stopping as soon as " + it + " can be left"
          : it +
                " must not be left now, the update continues; a second Ctrl-C within two seconds " +
                (isOne ? "" : "starts no further hub and ") + "stops as soon as " +
                (isOne ? "the hub" : "the others") + " can be left";
  live_.Say("qzhid: " + text);
}

void UpdateRun::Draw() {
  if (!isLive_) return;
  const std::size_t columns = system::DrawableTerminal().columns;
  std::vector<std::string> lines;
  for (const UpdateJob& job : jobs_) {
    const std::string label = jobs_.size() == 1 ? "" : "hub " + std::to_string(job.hub.instance);
    const std::string wide = label.empty() ? "" : TableCell(label);
    if (job.state == State::Failed) {
      if (!label.empty()) lines.push_back((wide + "failed").substr(0, columns - 1));
    } else {
      lines.push_back(job.progress.Bar(wide, columns));
    }
  }
  live_.Draw(lines);
}

}  // namespace qzhid
