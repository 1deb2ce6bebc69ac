#include "qzhid/update_job.h"

#include "qzhid/state.h"

namespace qzhid {

namespace {

std::string TextOf(RunningVersion version) { return HubState{.version = version}.Text(); }

Failure FailureOf(const Hub& hub, const ReportFailed& report, bool stops) {
  Failure failure(report.status, (stops ? "stopped, and " : "") + report.what, hub.Name(),
                  report.next);
  failure.SetLog(report.log);
  return failure;
}

}  // namespace

void UpdateJob::Finish(Outcome itsOutcome) {
  state = State::Done;
  outcome = itsOutcome;
}

void UpdateJob::Finish(const Failure& itsFailure) {
  Finish(OutcomeOf(itsFailure));
  failure = itsFailure;
}

UpdateJob::Change UpdateJob::Take(const WorkerReport& report, bool stops) {
  if (state == State::Done) return Change::None;  // only its end is of interest
  isWaiting = std::holds_alternative<ReportWaiting>(report);
  if (const auto* found = std::get_if<ReportFound>(&report)) {
    from = runs = TextOf(found->version);
  } else if (const auto* step = std::get_if<ReportProgress>(&report)) {
    return TakeProgress(*step);
  } else if (const auto* now = std::get_if<ReportState>(&report)) {
    runs = TextOf(now->version);
  } else if (const auto* away = std::get_if<ReportAway>(&report)) {
    trouble = away->what;
    return Change::Away;
  } else if (const auto* failing = std::get_if<ReportFailing>(&report)) {
    return TakeFailing(*failing, stops);
  } else if (const auto* done = std::get_if<ReportDone>(&report)) {
    Finish(done->isWritten ? Outcome::Updated : Outcome::Current);
  } else if (const auto* failed = std::get_if<ReportFailed>(&report)) {
    isReplaced = failed->isReplaced;
    Finish(FailureOf(hub, *failed, stops));
  }
  return state == State::Done ? Change::Done : Change::None;
}

UpdateJob::Change UpdateJob::TakeProgress(const ReportProgress& report) {
  const bool isStep = progress.Take(report.percent);
  if (progress.CurrentPhase() >= Phase::Erasing) runs.assign(1, '?');
  return isStep ? Change::Step : Change::None;
}

UpdateJob::Change UpdateJob::TakeFailing(const ReportFailing& report, bool stops) {
  if (stops) {
    worker->GiveUp();
    return Change::None;
  }
  trouble = report.what;
  progress = Progress(progress.Size());
  ++retries;
  worker->Retry();
  return Change::Retry;
}

}  // namespace qzhid
