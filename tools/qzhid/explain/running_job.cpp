#include "qzhid/explain/running_job.h"

#include <algorithm>
#include <span>
#include <utility>

#include "qzhid/explain/line_facts.h"

namespace qzhid {

namespace {

constexpr std::uint16_t kEnableKey = 0x4002, kClockKey = 0x4006, kEraseKey = 0x40E8;
constexpr std::uint32_t kLinuxStall = 32, kWindowsStall = 31;

struct SignStep {
  Sign sign;
  Step step;
};

/// The step that begins after a line, whatever the hub.
constexpr SignStep kNextSteps[] = {
    {Sign::EraseOk, Step::Write},   {Sign::WriteOk, Step::Check},
    {Sign::CheckOk, Step::Start},   {Sign::StartOk, Step::FirmwareBack},
    {Sign::ReturnOk, Step::Finish},
};

/// The step that has failed.
constexpr SignStep kFailedSteps[] = {
    {Sign::FlowModeFail, Step::Mode}, {Sign::LoaderFail, Step::ToLoader},
    {Sign::EraseFail, Step::Erase},   {Sign::BankEraseFail, Step::Erase},
    {Sign::WriteFail, Step::Write},   {Sign::CheckFail, Step::Check},
    {Sign::StartFail, Step::Start},   {Sign::ReturnFail, Step::FirmwareBack},
    {Sign::ReadFail, Step::Version},
};

/// None when the table does not have the line.
Step StepOf(std::span<const SignStep> table, Sign sign) {
  const auto found = std::find_if(table.begin(), table.end(),
                                  [&](const SignStep& entry) { return entry.sign == sign; });
  return found == table.end() ? Step::None : found->step;
}

Step FirstStep(const std::string& call) {
  if (call == kUpdateCall || call == kReadImageCall) return Step::Image;
  if (call == kOpenCall || call == kReadVersionCall) return Step::Find;
  if (call == kCloseCall) return Step::Finish;
  if (IsListing(call)) return Step::List;
  return call.empty() ? Step::None : Step::Request;
}

}  // namespace

RunningJob::RunningJob(RunningSession& log, const LogEvent& event, std::uint64_t firstLine)
    : log_(log),
      facts_(log),
      wait_(log.devices),
      isGuessed_(event.line->sign == Sign::Built || event.name == "CHidFind::ListHidDevice") {
  job_.begin = job_.end = event.timeUs;
  job_.firstLine = job_.lastLine = firstLine;
}

void RunningJob::SetCall(const std::string& call, const LogEvent& event) {
  job_.call = call;
  if (step_ != Step::None) return;
  const bool isFinding = call.empty() && event.line->topic == Topic::Finding;
  EnterStep(isFinding ? Step::Find : FirstStep(call), event);
}

/// A listing whose first line is cut off looks like an opening at first, and the other listing.
bool RunningJob::CorrectGuess(const std::string& call, const LogEvent& event) {
  if (!isGuessed_ || !IsListing(call) || event.line->sign == Sign::ListEnter) return false;
  job_.call = call;
  step_ = Step::List;
  job_.steps = {{step_, job_.begin, event.timeUs}};
  isGuessed_ = event.name == "CHidFind::ListHidDevice";
  return true;
}

void RunningJob::Take(const LogEvent& event) {
  job_.isDetailed = job_.isDetailed || event.line->level == 0;
  job_.end = event.timeUs;
  job_.lastLine = event.number;
  if (!job_.steps.empty()) job_.steps.back().end = event.timeUs;
  facts_.Take(event, job_);
  ApplyStep(event);
  wait_.Take(event, step_);
  ApplyTrouble(event);
  ApplyEnd(event);
  const bool isAboutRequest =
      event.line->nature == Nature::Failure || event.line->nature == Nature::Depends;
  if (!isAboutRequest) lastRequest_.reset();
}

void RunningJob::TakeRequest(Trouble failed) {
  const std::uint16_t key = failed.request ? failed.request->Key() : 0;
  failed.step = step_ == Step::None ? Step::Request : step_;
  if (step_ == Step::Write && key == kEraseKey) failed.step = Step::Erase;
  if (Is(kUpdateCall) && key == kClockKey) clockTrouble_ = failed;
  if (Is(kCloseCall) || key == kClockKey) return CountHarmless(failed.line);
  const bool isWaiting = IsWait(step_) && !wait_.IsConnected();
  if (isWaiting && (key == 0 || key == kEnableKey)) return wait_.AddRefused(std::move(failed));
  lastRequest_ = failed;
  const bool isSure = IsDetailed() || (!Is(kUpdateCall) && !Is(kReadVersionCall));
  if (isSure && !Is(kOpenCall)) AddTrouble(std::move(failed));
}

void RunningJob::TakeOpening(SeenDevices::Opening opening) {
  if (opening.isStranger) return CountHarmless(opening.failed.line);
  opening.failed.step = step_;
  wait_.AddClosed(std::move(opening.failed));
}

bool RunningJob::IsOver(const LogEvent& event) const {
  const Sign sign = event.line->sign;
  if (isEnded_) return true;
  if (event.name == job_.call) return false;
  if (IsList()) return job_.result != Result::Unclear && sign != Sign::Unload;
  if (Is(kOpenCall)) return job_.result == Result::Done && sign != Sign::OpenEnd;
  if (Is(kCloseCall)) {
    return job_.result == Result::Done && sign != Sign::Remove && sign != Sign::Unload;
  }
  if (Is(kReadVersionCall)) return forgets_ >= 2 && sign != Sign::Remove && sign != Sign::Forget;
  if (Is(kReadImageCall)) return step_ == Step::Version && !event.name.starts_with("C");
  if (Is(kUpdateCall)) {
    return job_.result == Result::Failed && event.name.find("Flow") == event.name.npos;
  }
  return false;
}

std::optional<Job> RunningJob::End() {
  job_.isDetailed = IsDetailed();
  if (!job_.isDetailed) job_.steps.clear();  // their ends are not logged
  if (job_.result == Result::Unclear) {
    if (job_.call.empty() && !job_.trouble) return std::nullopt;
    job_.result = LikelyResult();
  }
  return std::move(job_);
}

/// Of a job whose lines do not say it.
Result RunningJob::LikelyResult() const {
  if (Is(kUpdateCall) || Is(kOpenCall)) {
    return log_.session.level <= 1 ? Result::Unfinished : Result::Done;
  }
  if (Is(kReadVersionCall)) return forgets_ >= 2 ? Result::Done : Result::Unfinished;
  if (IsList()) return Result::Unfinished;
  if (!job_.call.empty()) return job_.trouble ? Result::Failed : Result::Done;
  return job_.isDetailed ? Result::Failed : Result::Unclear;
}

void RunningJob::CountHarmless(const LogLine* line, std::uint64_t count) {
  log_.session.harmless[line] += count;
}

/// The frequency is raised before the bank is erased, and a failure is only a trouble when the hub
/// has left: when it did not refuse, and refuses or misses the erase.
void RunningJob::AddTrouble(Trouble trouble) {
  if (job_.trouble) return;
  const bool isErase = trouble.request && trouble.request->Key() == kEraseKey;
  job_.trouble = std::move(trouble);
  if (!isErase || !clockTrouble_ || !clockTrouble_->code) return;
  const std::uint32_t code = *clockTrouble_->code;
  if (code != kLinuxStall && code != kWindowsStall) job_.trouble = clockTrouble_;
}

void RunningJob::AddTroubleOf(const LogEvent& event) {
  Trouble trouble = TroubleOf(event);
  trouble.step = step_;
  AddTrouble(std::move(trouble));
}

/// The bytes of the request that has failed.
void RunningJob::AddRequest(const LogEvent& event, std::size_t firstValue) {
  if (!job_.trouble || job_.trouble->request) return;
  job_.trouble->request = RequestOf(event.values, firstValue);
}

void RunningJob::EndWith(Result result) {
  job_.result = result;
  isEnded_ = true;
}

void RunningJob::EnterStep(Step step, const LogEvent& event) {
  step_ = step;
  if (IsWait(step)) wait_.Begin();
  if (step != Step::None) job_.steps.push_back({step, event.timeUs, event.timeUs});
}

void RunningJob::ApplyStep(const LogEvent& event) {
  const Step next = StepOf(kNextSteps, event.line->sign);
  if (next != Step::None) return EnterStep(next, event);
  switch (event.line->sign) {
    case Sign::Loaded:
    case Sign::NotLoaded:
      return AfterLoad(event);
    case Sign::ConnectTrue:
      return AfterConnect(event);
    case Sign::Mode:
      return AfterMode(event);
    case Sign::FlashCode:
      if (isResetSent_ && !IsDetailed()) AfterLoaderMode(false, event);
      return;
    case Sign::OneBank:  // which resets then
    case Sign::ResetSent:
      isResetSent_ = true;
      return;
    case Sign::LoaderOk:
      if (isResetSent_) return EnterStep(Step::LoaderBack, event);
      return EnterStep(job_.hasTwoBanks ? Step::Write : Step::Erase, event);
    case Sign::Forget:
      if (++forgets_ == 2 && Is(kReadVersionCall)) EnterStep(Step::Finish, event);
      return;
    default:
      return;
  }
}

void RunningJob::AfterLoad(const LogEvent& event) {
  isImageMissing_ = event.line->sign == Sign::NotLoaded;
  if (isImageMissing_) AddTroubleOf(event);
  EnterStep(Is(kReadImageCall) ? Step::Version : Step::Find, event);
}

/// A wait that has found nothing can succeed, too: the device counts as there until a scan after it
/// was found misses it. Then the step goes on, and the next request fails.
void RunningJob::AfterConnect(const LogEvent& event) {
  const std::uint32_t refused = wait_.Facts().refused;
  if (wait_.Cause() && refused > 0) CountHarmless(wait_.Cause()->line, refused);
  wait_.Connect();
  lastRequest_.reset();
  if (!wait_.IsArrived()) return;
  if (step_ == Step::Find) EnterStep(Is(kOpenCall) ? Step::Clock : Step::Mode, event);
  if (step_ == Step::LoaderBack) EnterStep(Step::Mode, event);
}

void RunningJob::AfterMode(const LogEvent& event) {
  const bool isLoader = event.values.texts[0] == "RomState";
  if (!job_.isInLoader) job_.isInLoader = isLoader;
  if (isResetSent_) return AfterLoaderMode(isLoader, event);
  if (step_ == Step::Mode || step_ == Step::Find) {
    EnterStep(Is(kReadVersionCall) ? Step::Version : Step::ToLoader, event);
  }
}

/// A hub with one bank must be in its loader after the reset.
void RunningJob::AfterLoaderMode(bool isLoader, const LogEvent& event) {
  if (isLoader) return EnterStep(Step::Erase, event);
  Trouble trouble = TroubleOf(event);
  trouble.step = wait_.HasLeft() || !IsDetailed() ? Step::LoaderBack : Step::ToLoader;
  AddTrouble(std::move(trouble));
  EnterStep(Step::Write, event);
}

void RunningJob::ApplyTrouble(const LogEvent& event) {
  const Step failed = StepOf(kFailedSteps, event.line->sign);
  if (failed != Step::None) return FailStep(failed, event);
  switch (event.line->sign) {
    case Sign::ConnectFalse:
      return FailWait(event);
    case Sign::Cause:
      if (event.line->topic != Topic::Finding) AddTroubleOf(event);
      return;
    case Sign::TooLong:
    case Sign::ListCause:
    case Sign::ModeFail:
    case Sign::StateRefuses:
      return AddTroubleOf(event);
    case Sign::Header:
      return AddRequest(event, 0);
    case Sign::Header8:
      AddTroubleOf(event);
      return AddRequest(event, 1);
    default:
      return;
  }
}

void RunningJob::FailWait(const LogEvent& event) {
  Trouble trouble = TroubleOf(event);
  trouble.step = step_;
  if (!IsWait(step_)) trouble.step = isResetSent_ ? Step::LoaderBack : Step::Find;
  wait_.Explain(trouble);
  AddTrouble(std::move(trouble));
}

/// The step has failed, and nothing before may have said why.
void RunningJob::FailStep(Step step, const LogEvent& event) {
  if (step == Step::Write && isImageMissing_) step = Step::Image;
  Trouble trouble = lastRequest_ ? *lastRequest_ : TroubleOf(event);
  trouble.step = step;
  AddTrouble(std::move(trouble));
  const bool isGuess = !IsDetailed() && job_.trouble->line->sign == Sign::ConnectFalse;
  if (isGuess) job_.trouble->step = step;
}

void RunningJob::ApplyEnd(const LogEvent& event) {
  switch (event.line->sign) {
    case Sign::ListFail:
      return FailListing();
    case Sign::ListExit:
    case Sign::GpioEnd:
      return EndWith(job_.result == Result::Unclear ? Result::Done : job_.result);
    case Sign::Opened:
    case Sign::Closed:
      job_.result = Result::Done;
      return;
    case Sign::Unload:
      isEnded_ = Is(kCloseCall);
      return;
    case Sign::OpenEnd:
    case Sign::FlowOk:
    case Sign::HubIds:
    case Sign::FileIds:
      return EndWith(Result::Done);
    case Sign::GpioFail:
      AddTroubleOf(event);
      job_.result = Result::Failed;
      return;
    case Sign::FlowFail:
      job_.result = Result::Failed;
      return;
    case Sign::Rejected:
      step_ = Step::Request;
      return FailCall(event);
    case Sign::Exception:
    case Sign::Failed:
    case Sign::OpenFail:
    case Sign::UpdateFail:
      return FailCall(event);
    default:
      return;
  }
}

void RunningJob::FailCall(const LogEvent& event) {
  if (Is(kUpdateCall) && !IsDetailed()) step_ = Step::None;
  AddTroubleOf(event);
  EndWith(Result::Failed);
}

/// A listing that finds no hub fails, too, without any trouble.
void RunningJob::FailListing() {
  job_.result = job_.trouble || wait_.Facts().blind > 0 ? Result::Failed : Result::Empty;
  if (job_.trouble || !wait_.Cause()) return;
  AddTrouble(*wait_.Cause());
  job_.trouble->wait = wait_.Facts();
}

}  // namespace qzhid
