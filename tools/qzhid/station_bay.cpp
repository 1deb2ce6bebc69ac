#include "qzhid/station_bay.h"

#include <chrono>
#include <cmath>

#include "qzhid/state.h"

namespace qzhid {

namespace {

constexpr int kComplete = 100;

// What the worker does with a unit that has failed. What the failure itself advises is for the
// engineer, who has a keyboard; it is in the record.
const char* NextOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::Loader:
      return "unplug it, and plug it in again";
    case Outcome::Lost:
      return "check the cable, and plug it in again";
    case Outcome::Failed:
      return "plug it into another bay once";
    case Outcome::NotStarted:
      return "call the engineer";
    default:
      return "put the unit aside";
  }
}

double SecondsOf(Clock::Time::duration time) { return std::chrono::duration<double>(time).count(); }

}  // namespace

bool Bay::WasLost() const { return job && job->outcome == Outcome::Lost; }

bool Bay::IsPassed() const {
  return job && (job->outcome == Outcome::Updated || job->outcome == Outcome::Current);
}

void Bay::ShowProgress(Clock::Time now) {
  tile.percent = job->progress.Percent();
  tile.from = job->from;
  tile.runs = job->runs;
  tile.retries = job->retries;
  tile.activity = tile.percent < 0 ? "checking" : job->progress.PhaseName();
  if (job->isWaiting) tile.activity = "waiting for another process that writes the hub";
  if (awaySince && now - *awaySince >= kUnplugged) {
    tile.activity = "waiting for the hub to return";
  }
  if (stage == Stage::Recording) tile.activity = "recording";
  tile.secondsLeft.reset();
  constexpr int kKnown = 20;  // per cent; before, nothing can be said
  if (tile.percent < kKnown) return;
  const double perPercent = SecondsOf(now - since) / tile.percent;
  tile.secondsLeft = static_cast<int>(std::lround(perPercent * (kComplete - tile.percent)));
}

void Bay::ShowOutcome() {
  tile.state = IsPassed() ? BayState::Passed : BayState::Failed;
  tile.activity.clear();
  tile.secondsLeft.reset();
  tile.outcome = NameOf(job->outcome);
  tile.from = job->from;
  tile.runs = job->runs;
  tile.retries = job->retries;
  if (IsPassed()) tile.percent = kComplete;
  if (job->failure) {
    tile.reason = job->failure->what();
    tile.next = NextOf(job->outcome);
  }
}

void Bay::FillRecord(UnitRecord& record, Clock::Time now) const {
  record.start = started;
  record.seconds = SecondsOf(now - since);
  record.bay = tile.name;
  record.portId = hub->shownId;
  record.location = hub->Location();
  record.label = tile.label;
  record.vid = hub->vid;
  record.pid = hub->pid;
  record.from = job->from;
  record.runs = job->runs;
  record.outcome = job->outcome;
  record.retries = job->retries;
  record.isRecovered = job->from == HubState{}.Text() && job->outcome == Outcome::Updated;
  if (!job->failure) return;
  record.status = static_cast<int>(job->failure->Status());
  record.what = job->failure->what();
  record.next = job->failure->Next();
}

}  // namespace qzhid
