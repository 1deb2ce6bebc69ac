#include "qzhid/explain/job_tracker.h"

#include <algorithm>
#include <utility>

#include "qzhid/explain/line_facts.h"
#include "qzhid/explain/readable_text.h"

namespace qzhid {

namespace {

constexpr std::uint16_t kDriveKey = 0x400C, kReadGpioKey = 0xC004;

/// Whether a line begins a call, whatever was before it.
bool IsBeginning(Sign sign) {
  return sign == Sign::ListEnter || sign == Sign::Notify || sign == Sign::ReadBegin ||
         sign == Sign::GpioBegin;
}

/// Whether a line is only what is left of a call.
bool IsTrailing(Sign sign) {
  return sign == Sign::Unload || sign == Sign::Freed || sign == Sign::Remove ||
         sign == Sign::Host || sign == Sign::OpenEnd;
}

}  // namespace

JobTracker::JobTracker(std::string file, Receiver receiver)
    : file_(std::move(file)), receiver_(std::move(receiver)) {}

void JobTracker::Take(const LogEvent& event) {
  if (event.line == nullptr) return;
  if (!hasSession_) BeginSession(event);
  if (event.line->sign == Sign::Host) TakeHost(event);
  Session& session = log_.session;
  session.level = std::min(session.level, event.line->level);
  session.end = event.timeUs;
  if (event.isWindows) log_.lineEnds = System::Windows;
  if (event.line->nature == Nature::Harmless) ++session.harmless[event.line];
  if (ContinueRequest(event)) return;
  if (event.line->sign == Sign::UpdateRunning) return KeepRefused(event);
  SwitchJob(event);
  CommitRequest();
  CommitOpening(event);
  if (job_) job_->Take(event);
}

void JobTracker::End() {
  if (hasSession_) EndSession();
}

/// A process names its host in its first listing or opening, before which it has logged little.
void JobTracker::TakeHost(const LogEvent& event) {
  constexpr std::uint64_t kFewLines = 3;
  std::unique_ptr<RunningJob> first;
  if (job_ && event.number - job_->Known().firstLine <= kFewLines) first = std::move(job_);
  EndJob();
  const bool isNew = !log_.session.host.empty() || !log_.session.jobs.empty();
  if (isNew) {
    EndSession();
    BeginSession(event);
    if (first) log_.session.begin = first->Known().begin;
    if (first) log_.session.firstLine = first->Known().firstLine;
  }
  job_ = std::move(first);
  log_.session.host = ReadableText(HostOf(event.values.texts[0]));
  log_.session.system = SystemOf(log_.session.host);
}

void JobTracker::BeginSession(const LogEvent& event) {
  hasSession_ = true;
  log_.session = {};
  log_.session.file = file_;
  log_.session.begin = log_.session.end = event.timeUs;
  log_.session.firstLine = event.number;
  log_.pointers = log_.lineEnds = System::Unknown;
  log_.devices.Forget();
}

void JobTracker::EndSession() {
  KeepGpio();
  CommitRequest();
  EndJob();
  System& system = log_.session.system;
  if (system == System::Unknown) system = log_.pointers;
  if (system == System::Unknown) system = log_.lineEnds;
  receiver_(std::move(log_.session));
  hasSession_ = false;
}

std::string JobTracker::CallOf(const LogEvent& event) const {
  if (event.line->sign == Sign::Built)
    return job_ && job_->IsList() && job_->IsOpen() ? job_->Known().call : kOpenCall;
  if (event.line->sign == Sign::Path)
    return job_ && job_->Is(kReadImageCall) ? kReadImageCall : kUpdateCall;
  if (event.name.starts_with("CUniversalFlow::DevUpdate")) return kUpdateCall;
  if (event.name.starts_with("CUniversalFlow::DevReadVersion")) return kReadVersionCall;
  if (event.name == "CUniversalFlow::DevErase") return std::string(event.name);
  if (event.name == "CUniversalFlow::ResetDeviceonly") return std::string(event.name);
  if (event.name == "CHidFind::ListHidDevice")
    return job_ && job_->IsList() ? job_->Known().call : kListCall;
  const bool isExport = event.name.starts_with("QZ_") && event.name != "QZ_InitProperty";
  return isExport ? ReadableText(event.name) : "";
}

void JobTracker::SwitchJob(const LogEvent& event) {
  const Sign sign = event.line->sign;
  const std::string call = CallOf(event);
  KeepGpio();
  if (job_ && job_->CorrectGuess(call, event)) return;
  if (job_) {
    const std::string& current = job_->Known().call;
    const bool isOther = !call.empty() && !current.empty() && call != current;
    const bool isNewOpening = sign == Sign::Built && !(job_->IsList() && job_->IsOpen());
    if (IsBeginning(sign) || isNewOpening || isOther || job_->IsOver(event)) EndJob();
  }
  if (!job_ && !IsTrailing(sign)) {
    const std::uint64_t firstLine = request_ ? request_->number : event.number;
    job_ = std::make_unique<RunningJob>(log_, event, firstLine);
    job_->SetCall(call, event);
  } else if (job_ && job_->Known().call.empty() && !call.empty()) {
    job_->SetCall(call, event);
  }
}

void JobTracker::EndJob() {
  if (!job_) return;
  std::optional<Job> job = std::exchange(job_, nullptr)->End();
  if (job) keeper_.Keep(log_.session, std::move(*job));
}

/// Another thread's call while an update runs, which goes on.
void JobTracker::KeepRefused(const LogEvent& event) {
  Job job;
  job.call = event.name;
  job.result = Result::Failed;
  job.begin = job.end = event.timeUs;
  job.firstLine = job.lastLine = event.number;
  job.trouble = TroubleOf(event);
  job.trouble->step = Step::Request;
  keeper_.Keep(log_.session, std::move(job));
}

/// The calls that read and drive GPIO lines log nothing of their own.
void JobTracker::KeepGpio() {
  if (!request_ || !request_->request) return;
  const std::uint16_t key = request_->request->Key();
  if (key != kDriveKey && key != kReadGpioKey) return;
  if (job_ && !job_->Is(kUpdateCall)) EndJob();
  Job job;
  job.call = key == kDriveKey ? "QZ_HidGPIOW" : "QZ_HidGPIOR";
  job.result = Result::Failed;
  job.isDetailed = true;
  job.begin = job.end = request_->timeUs;
  job.firstLine = job.lastLine = request_->number;
  job.trouble = std::exchange(request_, std::nullopt);
  job.trouble->step = Step::Request;
  keeper_.Keep(log_.session, std::move(job));
}

/// Takes the lines that only describe a request which failed.
bool JobTracker::ContinueRequest(const LogEvent& event) {
  const Sign sign = event.line->sign;
  if (sign == Sign::SendFail || sign == Sign::AnswerCode) {
    if (request_ || !job_) SwitchJob(event);
    CommitRequest();
    request_ = TroubleOf(event);
    request_->isAnswer = sign == Sign::AnswerCode;
    return true;
  }
  if (!request_) return false;
  auto& request = request_->request;
  switch (sign) {
    case Sign::TraceType:
      request.emplace();
      request->type = static_cast<std::uint8_t>(event.values.Number(0));
      request->code = static_cast<std::uint8_t>(event.values.Number(1));
      return true;
    case Sign::TraceValue:
      if (!request) return true;
      request->value = static_cast<std::uint16_t>(event.values.Number(0));
      request->index = static_cast<std::uint16_t>(event.values.Number(1));
      return true;
    case Sign::TraceLength:
      if (request) request->length = event.values.Number(0);
      return true;
    default:
      return sign == Sign::AnswerFail || sign == Sign::TraceReturn ||
             event.line->topic == Topic::Requests;
  }
}

void JobTracker::CommitRequest() {
  if (!request_ || !job_) return;
  job_->TakeRequest(*std::exchange(request_, std::nullopt));
}

/// The opening of a device may have failed, and this is the line after that.
void JobTracker::CommitOpening(const LogEvent& event) {
  auto opening = log_.devices.TakeOpening(event, job_ && job_->IsList());
  if (opening && job_) job_->TakeOpening(std::move(*opening));
}

}  // namespace qzhid
