#include "qzhid/explain/job_tracker.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "qzhid/explain/readable_text.h"

namespace qzhid {

namespace {

constexpr std::uint64_t kMostJobs = 2000;      // of a log that are kept, while they went well
constexpr std::uint64_t kMostFailures = 5000;  // and otherwise
constexpr std::size_t kMostKnown = 4096;       // devices, locations, hubs
constexpr std::size_t kLongestText = 400;
constexpr std::size_t kStatusSize = 20;

constexpr const char* kUpdate = "QZ_UpdateDev";
constexpr const char* kOpen = "QZ_OpenHid";
constexpr const char* kClose = "QZ_CloseDev";
constexpr const char* kReadVersion = "QZ_ReadDevVersion";
constexpr const char* kReadImage = "QZ_ReadBinVersion";

constexpr std::uint16_t kEnableKey = 0x4002, kClockKey = 0x4006, kEraseKey = 0x40E8;
constexpr std::uint32_t kLinuxStall = 32, kWindowsStall = 31;
constexpr std::uint16_t kDriveKey = 0x400C, kReadGpioKey = 0xC004;

Step FirstStep(const std::string& call) {
  if (call == kUpdate || call == kReadImage) return Step::Image;
  if (call == kOpen || call == kReadVersion) return Step::Find;
  if (call == kClose) return Step::Finish;
  if (call.starts_with("QZ_List")) return Step::List;
  return call.empty() ? Step::None : Step::Request;
}

bool IsWaitStep(Step step) {
  return step == Step::Find || step == Step::LoaderBack || step == Step::FirmwareBack;
}

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

std::string Ids(std::uint32_t vid, std::uint32_t pid) {
  char text[24] = {};
  std::snprintf(text, sizeof(text), "%04X:%04X", vid & 0xFFFF, pid & 0xFFFF);
  return text;
}

/// "2E7C:0818" of "HID\VID_2E7C&PID_0818&REV_0100"; the text itself when it has no ids.
std::string IdsOf(std::string_view hardwareId) {
  const std::size_t vid = hardwareId.find("VID_"), pid = hardwareId.find("PID_");
  if (vid == std::string_view::npos || pid == std::string_view::npos) {
    return std::string(hardwareId.substr(0, hardwareId.find(',')));
  }
  return std::string(hardwareId.substr(vid + 4, 4)) + ":" +
         std::string(hardwareId.substr(pid + 4, 4));
}

/// "Debian GNU/Linux 12 (bookworm), 6.1.0, x64" of the line that describes the host.
std::string HostOf(std::string_view text) {
  std::string host(text);
  for (const auto& [label, shown] : {std::pair{"OS Type:", ""}, std::pair{" OS Version:", ", "},
                                     std::pair{" Platform:", ", "}}) {
    const std::size_t at = host.find(label);
    if (at != std::string::npos) host.replace(at, std::string_view(label).size(), shown);
  }
  return host;
}

System SystemOf(const std::string& host) {
  if (host.find("Windows") != std::string::npos) return System::Windows;
  const bool isNamed = !host.empty() && !host.starts_with(',') && host.find(", ") != host.npos;
  const bool isVirtual = host.starts_with("Virtual Host");
  return isNamed && !isVirtual ? System::Linux : System::Unknown;
}

LoggedRequest FromHeader(const LogValues& values, std::size_t first) {
  std::array<std::uint32_t, 11> bytes{};
  for (std::size_t i = 0; i + first < values.count; ++i) bytes[i] = values.Number(i + first);
  LoggedRequest request;
  request.type = static_cast<std::uint8_t>(bytes[0]);
  request.code = static_cast<std::uint8_t>(bytes[1]);
  request.value = static_cast<std::uint16_t>(bytes[2] | bytes[3] << 8);
  request.index = static_cast<std::uint16_t>(bytes[4] | bytes[5] << 8);
  request.length = bytes[6];
  if (values.count - first > 8) request.target = static_cast<std::uint8_t>(bytes[8]);
  return request;
}

}  // namespace

JobTracker::JobTracker(std::string file, Receiver receiver)
    : file_(std::move(file)), receiver_(std::move(receiver)) {}

void JobTracker::Take(const LogEvent& event) {
  if (event.line == nullptr) return;
  if (!session_) BeginSession(event);
  if (event.line->sign == Sign::Host) TakeHost(event);
  session_->level = std::min(session_->level, event.line->level);
  session_->end = event.seconds;
  if (event.isWindows) lineEnds_ = System::Windows;
  if (event.line->nature == Nature::Harmless) CountHarmless(event.line);
  if (ContinueRequest(event)) return;
  if (event.line->sign == Sign::UpdateRunning) return KeepRefused(event);
  SwitchJob(event);
  CommitRequest();
  CommitOpening(event);
  if (!job_) return;
  job_->isDetailed = job_->isDetailed || event.line->level == 0;
  job_->end = event.seconds;
  job_->lastLine = event.number;
  if (!job_->steps.empty()) job_->steps.back().end = event.seconds;
  Apply(event);
  const bool isAboutIt =
      event.line->nature == Nature::Failure || event.line->nature == Nature::Depends;
  if (!isAboutIt) lastRequest_.reset();
}

void JobTracker::End() {
  if (session_) EndSession();
}

/// A process names its host in its first listing or opening, before which it has logged little.
void JobTracker::TakeHost(const LogEvent& event) {
  constexpr std::uint64_t kFewLines = 3;
  std::optional<Job> first;
  if (job_ && event.number - job_->firstLine <= kFewLines) {
    first = std::move(job_);
    job_.reset();
  }
  EndJob();
  const bool isNew = !session_->host.empty() || !session_->jobs.empty();
  if (isNew) {
    EndSession();
    BeginSession(event);
    if (first) session_->begin = first->begin;
    if (first) session_->firstLine = first->firstLine;
  }
  job_ = std::move(first);
  session_->host = ReadableText(HostOf(event.values.texts[0]));
  session_->system = SystemOf(session_->host);
}

void JobTracker::BeginSession(const LogEvent& event) {
  session_.emplace();
  session_->file = file_;
  session_->begin = session_->end = event.seconds;
  session_->firstLine = event.number;
  pointers_ = lineEnds_ = System::Unknown;
  strangers_.clear();
  otherPaths_.clear();
}

void JobTracker::EndSession() {
  KeepGpio();
  CommitRequest();
  EndJob();
  if (session_->system == System::Unknown) session_->system = pointers_;
  if (session_->system == System::Unknown) session_->system = lineEnds_;
  receiver_(std::move(*session_));
  session_.reset();
}

std::string JobTracker::CallOf(const LogEvent& event) const {
  if (event.line->sign == Sign::Built) return IsList() && !isEnded_ ? job_->call : kOpen;
  if (event.line->sign == Sign::Path) return Is(kReadImage) ? kReadImage : kUpdate;
  if (event.name.starts_with("CUniversalFlow::DevUpdate")) return kUpdate;
  if (event.name.starts_with("CUniversalFlow::DevReadVersion")) return kReadVersion;
  if (event.name == "CUniversalFlow::DevErase") return std::string(event.name);
  if (event.name == "CUniversalFlow::ResetDeviceonly") return std::string(event.name);
  if (event.name == "CHidFind::ListHidDevice") return IsList() ? job_->call : "QZ_ListAllHidDev";
  const bool isExport = event.name.starts_with("QZ_") && event.name != "QZ_InitProperty";
  return isExport ? ReadableText(event.name) : "";
}

/// Whether the job, whose end no line shows, has ended before this line.
bool JobTracker::IsOver(const LogEvent& event) const {
  const Sign sign = event.line->sign;
  if (isEnded_) return true;
  if (event.name == job_->call) return false;
  if (IsList()) return job_->result != Result::Unclear && sign != Sign::Unload;
  if (Is(kOpen)) return job_->result == Result::Done && sign != Sign::OpenEnd;
  if (Is(kClose)) {
    return job_->result == Result::Done && sign != Sign::Remove && sign != Sign::Unload;
  }
  if (Is(kReadVersion)) return forgets_ >= 2 && sign != Sign::Remove && sign != Sign::Forget;
  if (Is(kReadImage)) return step_ == Step::Version && !event.name.starts_with("C");
  if (Is(kUpdate))
    return job_->result == Result::Failed && event.name.find("Flow") == event.name.npos;
  return false;
}

void JobTracker::SwitchJob(const LogEvent& event) {
  const Sign sign = event.line->sign;
  const std::string call = CallOf(event);
  KeepGpio();
  if (job_ && CorrectGuess(event, call)) return;
  if (job_) {
    const bool isOther = !call.empty() && !job_->call.empty() && call != job_->call;
    const bool isNewOpening = sign == Sign::Built && !(IsList() && !isEnded_);
    if (IsBeginning(sign) || isNewOpening || isOther || IsOver(event)) EndJob();
  }
  if (!job_) {
    if (!IsTrailing(sign)) BeginJob(event, call);
  } else if (job_->call.empty() && !call.empty()) {
    NameJob(event, call);
  }
}

void JobTracker::BeginJob(const LogEvent& event, const std::string& call) {
  job_.emplace();
  job_->begin = job_->end = event.seconds;
  job_->firstLine = job_->lastLine = request_ ? request_->number : event.number;
  step_ = Step::None;
  isGuessed_ = event.line->sign == Sign::Built || event.name == "CHidFind::ListHidDevice";
  isEnded_ = isArrived_ = isConnected_ = isResetSent_ = hasLeft_ = isImageMissing_ = false;
  forgets_ = 0;
  status_.clear();
  wait_ = {};
  waitCause_.reset();
  lastRequest_.reset();
  clockTrouble_.reset();
  if (!call.empty()) return NameJob(event, call);
  if (event.line->topic == Topic::Finding) EnterStep(Step::Find, event);
}

void JobTracker::NameJob(const LogEvent& event, const std::string& call) {
  job_->call = call;
  if (step_ == Step::None) EnterStep(FirstStep(call), event);
}

/// A listing whose first line is cut off looks like an opening at first, and the other listing.
bool JobTracker::CorrectGuess(const LogEvent& event, const std::string& call) {
  const bool isListing = call.starts_with("QZ_List") && event.line->sign != Sign::ListEnter;
  if (!isListing || !isGuessed_) return false;
  job_->call = call;
  step_ = Step::List;
  job_->steps = {{step_, job_->begin, event.seconds}};
  isGuessed_ = event.name == "CHidFind::ListHidDevice";
  return true;
}

void JobTracker::EndJob() {
  if (!job_) return;
  Job job = std::move(*job_);
  job_.reset();
  job.isDetailed = job.isDetailed || session_->level == 0;
  if (!job.isDetailed) job.steps.clear();  // their ends are not logged
  if (job.result == Result::Unclear) {
    const bool isShown = session_->level <= 1;
    if (job.call == kUpdate || job.call == kOpen) {
      job.result = isShown ? Result::Unfinished : Result::Done;
    } else if (job.call == kReadVersion) {
      job.result = forgets_ >= 2 ? Result::Done : Result::Unfinished;
    } else if (job.call.starts_with("QZ_List")) {
      job.result = Result::Unfinished;
    } else if (!job.call.empty()) {
      job.result = job.trouble ? Result::Failed : Result::Done;
    } else if (!job.trouble) {
      return;  // nothing is known about it
    } else if (job.isDetailed) {
      job.result = Result::Failed;
    }
  }
  Keep(std::move(job));
}

void JobTracker::Keep(Job&& job) {
  const bool isFine = job.result == Result::Done || job.result == Result::Empty;
  if (keptJobs_ >= (isFine ? kMostJobs : kMostFailures)) {
    ++session_->omittedJobs;
    if (!isFine) ++session_->omittedProblems;
    return;
  }
  ++keptJobs_;
  session_->jobs.push_back(std::move(job));
}

/// Another thread's call while an update runs, which goes on.
void JobTracker::KeepRefused(const LogEvent& event) {
  Job job;
  job.call = event.name;
  job.result = Result::Failed;
  job.begin = job.end = event.seconds;
  job.firstLine = job.lastLine = event.number;
  job.trouble = TroubleOf(event);
  job.trouble->step = Step::Request;
  Keep(std::move(job));
}

/// The calls that read and drive GPIO lines log nothing of their own.
void JobTracker::KeepGpio() {
  if (!request_ || !request_->request) return;
  const std::uint16_t key = request_->request->Key();
  if (key != kDriveKey && key != kReadGpioKey) return;
  if (job_ && !Is(kUpdate)) EndJob();
  Job job;
  job.call = key == kDriveKey ? "QZ_HidGPIOW" : "QZ_HidGPIOR";
  job.result = Result::Failed;
  job.isDetailed = true;
  job.begin = job.end = request_->seconds;
  job.firstLine = job.lastLine = request_->number;
  job.trouble = std::exchange(request_, std::nullopt);
  job.trouble->step = Step::Request;
  Keep(std::move(job));
}

Trouble JobTracker::TroubleOf(const LogEvent& event) const {
  Trouble trouble;
  trouble.step = step_;
  trouble.line = event.line;
  trouble.text = ReadableText(event.text.substr(0, kLongestText));
  trouble.number = event.number;
  trouble.seconds = event.seconds;
  trouble.codeKind = event.line->code;
  if (trouble.codeKind != CodeKind::None && event.values.count > 0) {
    trouble.code = event.values.Number(0);
  }
  return trouble;
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

bool JobTracker::IsWaiting() const { return IsWaitStep(step_) && !isConnected_; }

void JobTracker::CommitRequest() {
  if (!request_ || !job_) return;
  Trouble failed = *std::exchange(request_, std::nullopt);
  const std::uint16_t key = failed.request ? failed.request->Key() : 0;
  failed.step = step_ == Step::None ? Step::Request : step_;
  if (step_ == Step::Write && key == kEraseKey) failed.step = Step::Erase;
  if (Is(kUpdate) && key == kClockKey) clockTrouble_ = failed;
  if (Is(kClose) || key == kClockKey) return CountHarmless(failed.line);
  if (IsWaiting() && (key == 0 || key == kEnableKey)) {
    ++wait_.refused;
    waitCause_ = std::move(failed);
    return;
  }
  lastRequest_ = failed;
  const bool isSure = IsDetailed() || (!Is(kUpdate) && !Is(kOpen) && !Is(kReadVersion));
  if (isSure && !Is(kOpen)) AddTrouble(std::move(failed));
}

/// The opening of a device has failed, and this is the line after that.
void JobTracker::CommitOpening(const LogEvent& event) {
  if (!opening_) return;
  Trouble failed = *std::exchange(opening_, std::nullopt);
  const bool hasCause = openCause_ && openCause_->line->sign != Sign::NoText;
  const bool isKnown = openCause_.has_value();
  if (openCause_) failed = *std::exchange(openCause_, std::nullopt);
  if (!job_) return;
  failed.step = step_;
  bool isStranger = !hasCause;
  if (event.line->sign == Sign::NoHub) {
    const std::uint32_t device = event.values.Number(0);
    isStranger = isStranger || strangers_.contains(device);
    if (IsList() && strangers_.size() < kMostKnown) strangers_.insert(device);
  } else if (!isKnown) {
    isStranger = false;  // it was a hub a moment before
  }
  if (isStranger) return CountHarmless(failed.line);
  ++wait_.closed;
  waitCause_ = std::move(failed);
}

void JobTracker::CountHarmless(const LogLine* line, std::uint64_t count) {
  session_->harmless[line] += count;
}

/// The frequency is raised before the bank is erased, and a failure is only a trouble when the hub
/// has left: when it did not refuse, and refuses or misses the erase.
void JobTracker::AddTrouble(Trouble trouble) {
  if (job_->trouble) return;
  const bool isErase = trouble.request && trouble.request->Key() == kEraseKey;
  job_->trouble = std::move(trouble);
  if (!isErase || !clockTrouble_ || !clockTrouble_->code) return;
  const std::uint32_t code = *clockTrouble_->code;
  if (code != kLinuxStall && code != kWindowsStall) job_->trouble = clockTrouble_;
}

void JobTracker::EndWith(Result result) {
  job_->result = result;
  isEnded_ = true;
}

void JobTracker::EnterStep(Step step, const LogEvent& event) {
  step_ = step;
  if (IsWaitStep(step)) isArrived_ = isConnected_ = hasLeft_ = false;
  if (step != Step::None) job_->steps.push_back({step, event.seconds, event.seconds});
}

void JobTracker::Apply(const LogEvent& event) {
  ApplyFacts(event);
  ApplyStep(event);
  ApplyWait(event);
  ApplyTrouble(event);
  ApplyEnd(event);
}

void JobTracker::ApplyFacts(const LogEvent& event) {
  const LogValues& values = event.values;
  switch (event.line->sign) {
    case Sign::Built:
      session_->built = ReadableText(values.texts[0]) + " " + ReadableText(values.texts[1]);
      break;
    case Sign::ListRecord: {
      const ListedHub hub{ReadableText(IdsOf(values.texts[4])), values.Number(2), values.Number(3)};
      auto& hubs = session_->hubs;
      const bool isKnown = std::find(hubs.begin(), hubs.end(), hub) != hubs.end();
      if (!isKnown && hubs.size() < kMostKnown) hubs.push_back(hub);
      break;
    }
    case Sign::Opened:
      pointers_ = values.texts[1].starts_with("0x") ? System::Linux : System::Windows;
      break;
    case Sign::Path:
      job_->image = ReadableText(values.texts[0]);
      break;
    case Sign::HubIds:
      job_->hub = Ids(values.Number(0), values.Number(1));
      break;
    case Sign::TwoBanks:
      job_->hasTwoBanks = true;
      break;
    case Sign::StatusBytes:
      ApplyStatus(event);
      break;
    default:
      break;
  }
}

/// The first status block of a job says which hub it is.
void JobTracker::ApplyStatus(const LogEvent& event) {
  if (status_.size() >= kStatusSize) return;
  for (std::size_t i = 0; i < event.values.count; ++i) {
    status_.push_back(static_cast<std::uint8_t>(event.values.Number(i)));
  }
  if (status_.size() < kStatusSize) return;
  job_->hub = Ids(status_[0] * 256u + status_[1], status_[4] * 256u + status_[5]);
  char version[16] = {};
  std::snprintf(version, sizeof(version), "%x.%02x", status_[10], status_[11]);
  job_->version = version;
}

void JobTracker::ApplyStep(const LogEvent& event) {
  switch (event.line->sign) {
    case Sign::Loaded:
    case Sign::NotLoaded:
      isImageMissing_ = event.line->sign == Sign::NotLoaded;
      if (isImageMissing_) AddTrouble(TroubleOf(event));
      return EnterStep(Is(kReadImage) ? Step::Version : Step::Find, event);
    case Sign::Arrived:
      isArrived_ = true;
      return;
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
      return EnterStep(job_->hasTwoBanks ? Step::Write : Step::Erase, event);
    case Sign::EraseOk:
      return EnterStep(Step::Write, event);
    case Sign::WriteOk:
      return EnterStep(Step::Check, event);
    case Sign::CheckOk:
      return EnterStep(Step::Start, event);
    case Sign::StartOk:
      return EnterStep(Step::FirmwareBack, event);
    case Sign::ReturnOk:
      return EnterStep(Step::Finish, event);
    case Sign::Forget:
      if (++forgets_ == 2 && Is(kReadVersion)) EnterStep(Step::Finish, event);
      return;
    default:
      return;
  }
}

/// A wait that has found nothing can succeed, too: the device counts as there until a scan after it
/// was found misses it. Then the step goes on, and the next request fails.
void JobTracker::AfterConnect(const LogEvent& event) {
  isConnected_ = true;
  if (waitCause_ && wait_.refused > 0) CountHarmless(waitCause_->line, wait_.refused);
  wait_ = {};
  waitCause_.reset();
  lastRequest_.reset();
  if (!isArrived_) return;
  if (step_ == Step::Find) EnterStep(Is(kOpen) ? Step::Clock : Step::Mode, event);
  if (step_ == Step::LoaderBack) EnterStep(Step::Mode, event);
}

void JobTracker::AfterMode(const LogEvent& event) {
  const bool isLoader = event.values.texts[0] == "RomState";
  if (!job_->isInLoader) job_->isInLoader = isLoader;
  if (isResetSent_) return AfterLoaderMode(isLoader, event);
  if (step_ == Step::Mode || step_ == Step::Find) {
    EnterStep(Is(kReadVersion) ? Step::Version : Step::ToLoader, event);
  }
}

/// A hub with one bank must be in its loader after the reset.
void JobTracker::AfterLoaderMode(bool isLoader, const LogEvent& event) {
  if (isLoader) return EnterStep(Step::Erase, event);
  Trouble trouble = TroubleOf(event);
  trouble.step = hasLeft_ || !IsDetailed() ? Step::LoaderBack : Step::ToLoader;
  AddTrouble(std::move(trouble));
  EnterStep(Step::Write, event);
}

void JobTracker::ApplyWait(const LogEvent& event) {
  switch (event.line->sign) {
    case Sign::DeviceIds:
    case Sign::IsHub:
      openCause_.reset();
      return;
    case Sign::OpenResult:
      opening_ = TroubleOf(event);
      return;
    case Sign::ScanFail:
    case Sign::ParentFail:
      ++wait_.blind;
      waitCause_ = TroubleOf(event);
      return;
    case Sign::LeftTrue:
      hasLeft_ = true;
      return;
    case Sign::WantedPath:
      wait_.wanted = ReadableText(event.values.texts[0].substr(0, kLongestText));
      return;
    case Sign::SeenPath: {
      const std::string path = ReadableText(event.values.texts[0].substr(0, kLongestText));
      if (step_ != Step::Find && IsWaiting() && !otherPaths_.contains(path)) wait_.elsewhere = path;
      if (step_ == Step::Find && otherPaths_.size() < kMostKnown) otherPaths_.insert(path);
      return;
    }
    case Sign::ConnectFalse:
      return FailWait(event);
    default:
      return;
  }
}

void JobTracker::FailWait(const LogEvent& event) {
  Step step = step_;
  if (!IsWaitStep(step)) step = isResetSent_ ? Step::LoaderBack : Step::Find;
  Trouble trouble = TroubleOf(event);
  if (waitCause_) {
    trouble.code = waitCause_->code;
    trouble.codeKind = waitCause_->codeKind;
    trouble.request = waitCause_->request;
  }
  trouble.step = step;
  trouble.wait = wait_;
  AddTrouble(std::move(trouble));
}

void JobTracker::ApplyTrouble(const LogEvent& event) {
  switch (event.line->sign) {
    case Sign::NoText:
      openCause_ = TroubleOf(event);
      return;
    case Sign::Cause:
      if (event.line->topic == Topic::Finding) {
        openCause_ = TroubleOf(event);
      } else {
        AddTrouble(TroubleOf(event));
      }
      return;
    case Sign::TooLong:
    case Sign::ListCause:
    case Sign::ModeFail:
    case Sign::StateRefuses:
      return AddTrouble(TroubleOf(event));
    case Sign::Header:
    case Sign::Header8:
      if (event.line->sign == Sign::Header8) AddTrouble(TroubleOf(event));
      if (job_->trouble && !job_->trouble->request) {
        const std::size_t first = event.line->sign == Sign::Header8 ? 1 : 0;
        job_->trouble->request = FromHeader(event.values, first);
      }
      return;
    case Sign::FlowModeFail:
      return FailStep(Step::Mode, event);
    case Sign::LoaderFail:
      return FailStep(Step::ToLoader, event);
    case Sign::EraseFail:
    case Sign::BankEraseFail:
      return FailStep(Step::Erase, event);
    case Sign::WriteFail:
      return FailStep(isImageMissing_ ? Step::Image : Step::Write, event);
    case Sign::CheckFail:
      return FailStep(Step::Check, event);
    case Sign::StartFail:
      return FailStep(Step::Start, event);
    case Sign::ReturnFail:
      return FailStep(Step::FirmwareBack, event);
    case Sign::ReadFail:
      return FailStep(Step::Version, event);
    default:
      return;
  }
}

/// The step has failed, and nothing before may have said why.
void JobTracker::FailStep(Step step, const LogEvent& event) {
  Trouble trouble = lastRequest_ ? *lastRequest_ : TroubleOf(event);
  trouble.step = step;
  AddTrouble(std::move(trouble));
  const bool isGuess = !IsDetailed() && job_->trouble->line->sign == Sign::ConnectFalse;
  if (isGuess) job_->trouble->step = step;
}

void JobTracker::ApplyEnd(const LogEvent& event) {
  switch (event.line->sign) {
    case Sign::ListFail:
      return FailListing(event);
    case Sign::ListExit:
      return EndWith(job_->result == Result::Unclear ? Result::Done : job_->result);
    case Sign::Opened:
    case Sign::Closed:
      job_->result = Result::Done;
      return;
    case Sign::Unload:
      isEnded_ = Is(kClose);
      return;
    case Sign::OpenEnd:
    case Sign::FlowOk:
    case Sign::HubIds:
    case Sign::FileIds:
      return EndWith(Result::Done);
    case Sign::GpioFail:
      AddTrouble(TroubleOf(event));
      job_->result = Result::Failed;
      return;
    case Sign::GpioEnd:
      return EndWith(job_->result == Result::Unclear ? Result::Done : job_->result);
    case Sign::FlowFail:
      job_->result = Result::Failed;
      return;
    case Sign::Rejected:
      step_ = Step::Request;
      [[fallthrough]];
    case Sign::Exception:
    case Sign::Failed:
    case Sign::OpenFail:
    case Sign::UpdateFail:
      if (Is(kUpdate) && !IsDetailed()) step_ = Step::None;
      AddTrouble(TroubleOf(event));
      return EndWith(Result::Failed);
    default:
      return;
  }
}

/// A listing that finds no hub fails, too, without any trouble.
void JobTracker::FailListing(const LogEvent&) {
  job_->result = job_->trouble || wait_.blind > 0 ? Result::Failed : Result::Empty;
  if (!job_->trouble && waitCause_) {
    AddTrouble(*waitCause_);
    job_->trouble->wait = wait_;
  }
}

}  // namespace qzhid
