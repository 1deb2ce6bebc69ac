#include "qzhid/update_run.h"

#include <algorithm>

#include "qzhid/await_hub.h"
#include "qzhid/interrupt.h"
#include "qzhid/options.h"
#include "qzhid/port_lock.h"
#include "qzhid/state.h"
#include "qzhid/update_check.h"

namespace qzhid {

namespace {

using State = UpdateJob::State;
using Change = UpdateJob::Change;

Failure NotStarted(const UpdateJob& job) {
  return {Exit::Failed, "stopped before the hub was touched: it runs " + job.from, job.hub.Name(),
          "repeat the command"};
}

}  // namespace

UpdateRun::UpdateRun(Host& host, const UpdateOptions& options, const Image& image,
                     const std::vector<Hub>& hubs)
    : host_(host),
      options_(options),
      image_(image),
      workers_(host, options_, image_),
      display_(host, options.style) {
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

void UpdateRun::Finish(UpdateJob& job, const Failure& failure) {
  job.Finish(failure);
  ShowOutcome(job);
}

void UpdateRun::Finish(UpdateJob& job, Outcome outcome) {
  job.Finish(outcome);
  ShowOutcome(job);
}

void UpdateRun::ShowOutcome(const UpdateJob& job) {
  display_.ShowOutcome(job.hub, job.outcome, job.runs, job.failure ? &*job.failure : nullptr);
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

// Asks the hub what it runs, and waits for one that leaves meanwhile.
HubState UpdateRun::Look(UpdateJob& job) {
  try {
    return ReadState(host_, job.hub);
  } catch (const Failure&) {
    Clock clock;
    const AwaitedHub awaited =
        AwaitHub(host_, clock, job.hub.Location(), std::chrono::seconds(options_.patience),
                 [&] { display_.ShowAway(job.hub, "it does not answer"); });
    const bool isBack = awaited.hub && awaited.hub->isOpenable &&
                        (awaited.away.count() > 0 || awaited.hub->instance != job.hub.instance);
    if (!isBack) throw;
    job.hub = *awaited.hub;
    return ReadState(host_, job.hub);
  }
}

void UpdateRun::Check(UpdateJob& job, std::size_t attached) {
  if (!job.hub.isOpenable) throw NotOpenable(job.hub);
  if (job.hub.locations.empty() && attached > 1) {
    throw Failure(Exit::Refused, "the hub has no location, so it cannot be told from others",
                  job.hub.Name(), "unplug the other hubs and repeat the command");
  }
  const PortLock lock(LockName(host_, job.hub.Location()));
  if (!lock.IsHeld()) throw IsBeingWritten(job.hub.Name());
  const HubState state = Look(job);
  job.from = job.runs = state.Text();
  if (CheckHub(job.hub, state, image_, options_.rules) == Verdict::Current) {
    Finish(job, Outcome::Current);
  }
}

void UpdateRun::Skip() {
  for (UpdateJob& job : jobs_) {
    if (job.state != State::Ready) continue;
    Finish(job, Outcome::NotStarted);
  }
}

void UpdateRun::Write() {
  if (Count(State::Ready) == 0) return;
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
    job.failure = NotStarted(job);
    Finish(job, Outcome::NotStarted);
  }
}

void UpdateRun::StartNext() {
  auto active = static_cast<std::size_t>(std::count_if(
      jobs_.begin(), jobs_.end(), [](const UpdateJob& job) { return job.worker != nullptr; }));
  for (std::size_t i = 0; i < jobs_.size(); ++i) {
    if (active >= options_.jobs || InterruptGuard::IsStopWanted()) return;
    if (jobs_[i].state != State::Ready) continue;
    jobs_[i].worker = workers_.Start(jobs_[i].hub);
    jobs_[i].state = State::Writing;
    ++active;
  }
}

// Takes what the workers report; false when there is none left.
bool UpdateRun::Listen() {
  std::vector<const Process*> workers;
  for (const UpdateJob& job : jobs_) {
    if (job.worker) workers.push_back(job.worker->Source());
  }
  if (workers.empty()) return false;
  Process::AwaitOutput(workers);
  for (UpdateJob& job : jobs_) {
    if (!job.worker) continue;
    const bool goesOn = job.worker->Poll([&](const WorkerReport& report) { Take(job, report); });
    if (!goesOn) job.worker.reset();
  }
  return true;
}

void UpdateRun::Take(UpdateJob& job, const WorkerReport& report) {
  switch (job.Take(report, InterruptGuard::IsStopWanted())) {
    case Change::Step:
      return display_.ShowProgress(job.hub, job.progress);
    case Change::Away:
      return display_.ShowAway(job.hub, job.trouble);
    case Change::Retry:
      return display_.ShowRetry(job.hub, job.trouble, job.retries, options_.retries);
    case Change::Done:
      return ShowOutcome(job);
    case Change::None:
      return;
  }
}

void UpdateRun::SayInterrupted() {
  const bool isOne = jobs_.size() == 1;
  const std::string it = isOne ? "the hub" : "the hubs being written";
  if (InterruptGuard::IsStopWanted()) {
    return display_.Say("stopping as soon as " + it + " can be left");
  }
  display_.Say(it +
               " must not be left now, the update continues; a second Ctrl-C within two seconds " +
               (isOne ? "" : "starts no further hub and ") + "stops as soon as " +
               (isOne ? "the hub" : "the others") + " can be left");
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
