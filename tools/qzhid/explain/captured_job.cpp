#include "qzhid/explain/captured_job.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "qzhid/explain/request_names.h"
#include "qzhid/explain/session_facts.h"
#include "virtualhub/bus/urb_status.h"

namespace qzhid {

namespace {

constexpr std::uint16_t kReadyKey = 0x4002, kStatusKey = 0xC009, kFrequencyKey = 0x4006;
constexpr std::uint16_t kToLoaderKey = 0x4000, kStartKey = 0x40E9;
constexpr std::uint16_t kEraseFlashKey = 0x40E8, kWriteFlashKey = 0x40C8, kReadFlashKey = 0xC0D8;
constexpr std::uint16_t kValidateKey = 0x40D9;
constexpr std::int64_t kPauseUs = kUsPerSecond;  // after which a host does something else
constexpr std::size_t kLargestImage = 0x1000000;

bool IsIdentification(std::uint16_t key) {
  return key == kReadyKey || key == kStatusKey || key == kFrequencyKey;
}

/// The step of an update that sends the request; none for those of several steps.
Step StepOfRequest(std::uint16_t key) {
  switch (key) {
    case kToLoaderKey:
      return Step::ToLoader;
    case kEraseFlashKey:
      return Step::Erase;
    case kWriteFlashKey:
      return Step::Write;
    case kReadFlashKey:
    case kValidateKey:
      return Step::Check;
    case kStartKey:
      return Step::Start;
    default:
      return Step::None;
  }
}

const LogLine* LineOf(Sign sign) {
  const auto lines = LogLines();
  return &*std::find_if(lines.begin(), lines.end(),
                        [sign](const LogLine& line) { return line.sign == sign; });
}

Trouble TroubleAt(const CapturedRequest& request, Step step, Sign sign) {
  Trouble trouble;
  trouble.step = step;
  trouble.line = LineOf(sign);
  trouble.text = TextOf(request.request);
  trouble.number = request.frame;
  trouble.timeUs = request.endUs;
  trouble.request = request.request;
  return trouble;
}

/// Of a request that failed.
Trouble TroubleOf(const CapturedRequest& request, Step step) {
  Trouble trouble = TroubleAt(request, step, request.isAnswer ? Sign::AnswerCode : Sign::SendFail);
  trouble.isAnswer = request.isAnswer;
  trouble.code = 0u - static_cast<std::uint32_t>(request.status);
  trouble.codeKind = CodeKind::System;
  trouble.text += " ended with status " + std::to_string(request.status);
  return trouble;
}

bool IsGone(std::int32_t status) {
  constexpr std::int32_t kShutDown = -108;
  return status == virtualhub::kUrbNoDevice || status == virtualhub::kUrbProtocolError ||
         status == kShutDown;
}

bool HasStatusBlock(const CapturedRequest& request) {
  constexpr std::size_t kFlags = 15;
  return request.request.Key() == kStatusKey && request.IsDone() && request.data.size() > kFlags;
}

/// Of an answer with a status block.
bool RunsLoader(const CapturedRequest& request) { return (request.data[15] & 0x02) == 0; }
bool HasTwoBanks(const CapturedRequest& request) { return (request.data[15] & 0x80) != 0; }

void Extend(Job& job, const CapturedRequest& request) {
  job.end = std::max(job.end, request.endUs);  // clocks may be put back
  job.lastLine = request.frame;
}

Job JobOf(const CapturedRequest& request, std::string title) {
  Job job;
  job.title = std::move(title);
  job.begin = request.beginUs;
  job.firstLine = request.frame;
  job.isDetailed = true;
  Extend(job, request);
  return job;
}

}  // namespace

// ---- An update ----------------------------------------------------------------------------------

CapturedUpdate::CapturedUpdate(Job found, std::int64_t modeUs) : job_(std::move(found)) {
  job_.call = kUpdateCall;
  job_.title.clear();
  job_.result = Result::Unclear;
  job_.trouble.reset();
  EnterStep(Step::Find, job_.begin);
  if (modeUs != 0) EnterStep(Step::Mode, modeUs);
}

bool CapturedUpdate::Continues(const CapturedRequest& request) const {
  const std::uint16_t key = request.request.Key();
  const Step step = StepOfRequest(key);
  const bool hasFailed = job_.trouble.has_value();
  if (step == Step::ToLoader) return step_ < step;
  if (step != Step::None) return step_ <= step;
  if (!IsIdentification(key)) return false;
  switch (step_) {
    case Step::Write:
    case Step::Check:
      return key == kStatusKey && !hasFailed;
    case Step::ToLoader:
    case Step::Erase:
    case Step::Start:
      return !hasFailed;
    default:
      return true;
  }
}

void CapturedUpdate::Take(const CapturedRequest& request) {
  const std::uint16_t key = request.request.Key();
  const Step step = StepOfRequest(key);
  if (step != Step::None) TakeStep(request, step);
  if (key == kReadyKey) TakeReady(request);
  if (key == kStatusKey) TakeMode(request);
  Extend(job_, request);
  job_.steps.back().end = std::max(job_.steps.back().begin, request.endUs);
}

void CapturedUpdate::TakeStep(const CapturedRequest& request, Step step) {
  if (step != step_) EnterStep(step, request.beginUs);
  if (!request.hasEnded) return;
  if (!request.IsDone()) return AddTrouble(TroubleOf(request, step));
  TakeData(request);
  if (step != Step::ToLoader && step != Step::Start) return;
  isBack_ = false;
  EnterStep(step == Step::ToLoader ? Step::LoaderBack : Step::FirmwareBack, request.endUs);
}

/// A hub that has just come back refuses requests until it is ready.
void CapturedUpdate::TakeReady(const CapturedRequest& request) {
  if (!request.hasEnded) return;
  if (request.IsDone()) {
    refused_ = 0;
    if (step_ == Step::FirmwareBack) EnterStep(Step::Finish, request.endUs);
  } else if (IsWait(step_)) {
    ++refused_;
    lastRefused_ = request;
  } else {
    AddTrouble(TroubleOf(request, step_));
  }
}

void CapturedUpdate::TakeMode(const CapturedRequest& request) {
  if (!request.hasEnded) return;
  if (!request.IsDone()) return AddTrouble(TroubleOf(request, step_));
  if (!HasStatusBlock(request)) return;
  const bool isLoader = RunsLoader(request);
  if (step_ == Step::LoaderBack) {
    EnterStep(Step::Mode, request.beginUs);
    if (isLoader) return;
    Trouble trouble = TroubleAt(request, isBack_ ? Step::LoaderBack : Step::ToLoader, Sign::Mode);
    trouble.request.reset();  // it succeeded
    AddTrouble(std::move(trouble));
  } else if (step_ == Step::Finish) {
    isOver_ = true;
    if (!isLoader) return;
    Trouble trouble = TroubleAt(request, Step::FirmwareBack, Sign::ReturnFail);
    trouble.what = "the hub came back in its loader: it does not accept the image.";
    AddTrouble(std::move(trouble));
    isGood_ = false;
  }
}

/// What is read back must be what was written.
void CapturedUpdate::TakeData(const CapturedRequest& request) {
  const std::uint16_t key = request.request.Key();
  const std::size_t address = request.request.Address(), size = request.data.size();
  if (key == kEraseFlashKey) image_.clear();
  if (!virtualhub::Fits(kLargestImage, address, size)) return;
  if (key == kWriteFlashKey) {
    image_.resize(std::max(image_.size(), address + size), 0xFF);
    std::copy(request.data.begin(), request.data.end(),
              image_.begin() + static_cast<std::ptrdiff_t>(address));
  }
  if (key != kReadFlashKey || address >= image_.size()) return;
  const std::size_t known = std::min(size, image_.size() - address);
  for (std::size_t i = 0; i < known; ++i) {
    const std::uint8_t written = image_[address + i], read = request.data[i];
    if (written == read) continue;
    Trouble trouble = TroubleAt(request, Step::Check, Sign::CheckFail);
    char what[96] = {};
    std::snprintf(what, sizeof(what), "0x%02X was read back at 0x%06X, where 0x%02X was written.",
                  read, static_cast<unsigned>(address + i), written);
    trouble.what = what;
    isDamaged_ = true;
    return AddTrouble(std::move(trouble));
  }
}

void CapturedUpdate::EnterStep(Step step, std::int64_t timeUs) {
  if (!job_.steps.empty()) job_.steps.back().end = std::max(job_.steps.back().begin, timeUs);
  job_.steps.push_back({step, timeUs, timeUs});
  step_ = step;
}

void CapturedUpdate::AddTrouble(Trouble trouble) {
  if (!job_.trouble) job_.trouble = std::move(trouble);
}

Job CapturedUpdate::End(bool isCut) {
  const bool isUp = step_ == Step::Finish && isGood_ && !isDamaged_;
  if (!isUp && !job_.trouble && IsWait(step_) && refused_ > 0) {
    job_.trouble = TroubleOf(*lastRefused_, step_);
    job_.trouble->line = LineOf(Sign::ConnectFalse);
    job_.trouble->wait.refused = refused_;
  }
  const bool isOpen = isCut && !job_.trouble;
  job_.result = isUp ? Result::Done : isOpen ? Result::Unfinished : Result::Failed;
  return std::move(job_);
}

// ---- All jobs -----------------------------------------------------------------------------------

void CapturedJobs::Arrive() {
  isAway_ = false;
  if (update_) update_->Arrive();
}

void CapturedJobs::Take(const CapturedRequest& request) {
  const Step step = StepOfRequest(request.request.Key());
  session_.end = std::max(session_.end, request.endUs);
  const bool isReset = step == Step::ToLoader || step == Step::Start;
  if (request.IsDone()) isAway_ = isReset;
  if (IsGone(request.status)) isAway_ = true;

  if (update_ && !update_->Continues(request)) EndUpdate(false);
  if (update_) {
    update_->Take(request);
    if (update_->IsOver()) EndUpdate(false);
  } else if (IsIdentification(request.request.Key())) {
    TakeIdentification(request);
  } else if (step == Step::ToLoader || step == Step::Erase || step == Step::Write) {
    BeginUpdate(request);
  } else {
    TakeOther(request);
  }
}

void CapturedJobs::End() {
  if (update_) EndUpdate(true);
  EndIdentification();
}

/// The frequency is raised after the request that enables the others when the hub is opened.
void CapturedJobs::TakeIdentification(const CapturedRequest& request) {
  const std::uint16_t key = request.request.Key();
  const std::optional<Job>& last = found_ ? found_ : opened_;
  if (last && request.beginUs - last->end > kPauseUs) EndIdentification();
  if (!found_) found_ = JobOf(request, "identify the hub");
  Extend(*found_, request);
  if (request.IsDone()) {
    found_->result = Result::Done;
    found_->trouble.reset();
  } else if (key != kFrequencyKey) {
    found_->result = request.hasEnded ? Result::Failed : Result::Unfinished;
    if (request.hasEnded) found_->trouble = TroubleOf(request, Step::Find);
  }
  if (HasStatusBlock(request)) {
    if (modeUs_ == 0) modeUs_ = request.beginUs;
    TakeStatusBlock(request.data, *found_);
    found_->isInLoader = RunsLoader(request);
    found_->hasTwoBanks = HasTwoBanks(request);
  }
  const bool isOpening = key == kFrequencyKey && lastKey_ == kReadyKey;
  lastKey_ = key;
  if (isOpening) MergeFound();
}

void CapturedJobs::MergeFound() {
  modeUs_ = 0;
  if (!found_) return;
  if (opened_) {
    found_->begin = opened_->begin;
    found_->firstLine = opened_->firstLine;
  }
  opened_ = std::exchange(found_, std::nullopt);
}

void CapturedJobs::EndIdentification() {
  MergeFound();
  if (opened_) keeper_.Keep(session_, *std::exchange(opened_, std::nullopt));
}

void CapturedJobs::BeginUpdate(const CapturedRequest& request) {
  const std::int64_t modeUs = std::exchange(modeUs_, 0);
  Job found = found_ ? *std::exchange(found_, std::nullopt) : JobOf(request, "");
  EndIdentification();
  update_.emplace(std::move(found), modeUs);
  update_->Take(request);
}

void CapturedJobs::EndUpdate(bool isCut) {
  keeper_.Keep(session_, std::exchange(update_, std::nullopt)->End(isCut));
}

void CapturedJobs::TakeOther(const CapturedRequest& request) {
  EndIdentification();
  Job job = JobOf(request, KindOf(request.request));
  job.steps = {{Step::Request, job.begin, job.end}};
  job.result = request.IsDone()   ? Result::Done
               : request.hasEnded ? Result::Failed
                                  : Result::Unfinished;
  if (job.result == Result::Failed) job.trouble = TroubleOf(request, Step::Request);
  keeper_.Keep(session_, std::move(job));
}

}  // namespace qzhid
