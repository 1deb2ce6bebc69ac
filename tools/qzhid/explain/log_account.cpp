#include "qzhid/explain/log_account.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "qzhid/explain/error_names.h"
#include "qzhid/explain/job_tracker.h"
#include "qzhid/explain/request_names.h"
#include "qzhid/failure.h"

namespace qzhid {

namespace {

constexpr std::size_t kPiece = 1 << 18;        // bytes read at once
constexpr std::size_t kMostSessions = 1000;    // of a log that are kept, while nothing is wrong
constexpr std::uint64_t kFarEnough = 1 << 20;  // bytes after which a log must have shown itself

Failure NoLog(const std::string& file, const std::string& why) {
  return {Exit::Failed, file + " is no log of the library" + why, "",
          "name a file that 'qzhid --log' or QZ_SetLogPath made, or info.txt beside the library"};
}

void CheckShape(const std::string& file, const LogShape& shape) {
  if (shape.isWide) throw NoLog(file, ": it is UTF-16; save it as UTF-8 or ANSI");
  if (shape.events == shape.unknown) {
    throw NoLog(file, shape.bytes == 0 ? ": it is empty" : "");
  }
}

}  // namespace

void KeepSession(LogAccount& account, Session&& session) {
  for (const auto& [line, count] : session.harmless) account.harmless[line] += count;
  session.harmless.clear();
  account.omittedProblems += session.omittedProblems;
  const bool isBad = std::any_of(session.jobs.begin(), session.jobs.end(), IsProblem);
  if (account.sessions.size() < kMostSessions || isBad) {
    account.sessions.push_back(std::move(session));
  } else {
    ++account.omittedSessions;
  }
}

namespace {

std::string InStep(Step step) {
  if (step == Step::None) return "In a step that this log does not show";
  return std::string("In the step '") + NameOf(step) + "'";
}

std::string Plural(std::uint32_t count, const std::string& thing) {
  return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

// Bytes of the image that were written before, or how much of it was read back.
std::string ProgressOf(const Trouble& trouble) {
  constexpr std::uint16_t kWrite = 0x40C8, kRead = 0xC0D8;
  if (!trouble.request) return "";
  const std::uint16_t key = trouble.request->Key();
  const std::string bytes = std::to_string(trouble.request->Address()) + " bytes";
  if (key == kWrite) return " " + bytes + " of the image were written before.";
  if (key == kRead) return " " + bytes + " were read back before.";
  return "";
}

std::string WaitText(const Trouble& trouble, const std::string& code) {
  const WaitFacts& wait = trouble.wait;
  if (wait.closed > 0) {
    return " A device that may be it could not be opened (" + Plural(wait.closed, "time") +
           "): " + code + ".";
  }
  if (wait.refused > 0) {
    return " It was there and " + Plural(wait.refused, "request") + " 40/02 failed: " + code + ".";
  }
  if (!wait.elsewhere.empty()) {
    return " A hub came to another port, " + wait.elsewhere + "; it was to be at " + wait.wanted +
           ".";
  }
  if (wait.blind > 0) {
    return " The system did not list its devices (" + Plural(wait.blind, "scan") + "): " + code +
           ".";
  }
  return " No scan found it.";
}

std::string WhatOfEnd(const Session& session, const Job& job) {
  const std::string where = InStep(FailedStep(job));
  if (!session.isCapture) {
    return where + " the log ends: the program ended there, or the log is cut.";
  }
  if (job.result == Result::Failed) return where + " the host gave up; no request had failed.";
  return where + " the capture ends" +
         (IsWait(FailedStep(job)) ? ", and the hub has not come back."
                                  : ": the program ended there, or the capture is cut.");
}

std::string WhatOf(const Session& session, const Job& job) {
  const Step step = FailedStep(job);
  if (!job.trouble) return WhatOfEnd(session, job);
  const Trouble& trouble = *job.trouble;
  if (!trouble.what.empty()) return InStep(step) + " " + trouble.what + ProgressOf(trouble);
  const std::string code =
      trouble.code ? ErrorText(session.system, trouble.codeKind, *trouble.code) : "";
  const Sign sign = trouble.line->sign;
  if (sign == Sign::ConnectFalse) {
    return InStep(step) + " the hub did not come in time." + WaitText(trouble, code);
  }
  if (sign == Sign::SendFail || sign == Sign::AnswerCode) {
    const std::string name =
        trouble.request ? "the request " + TextOf(*trouble.request) : std::string("a request");
    const char* const how =
        trouble.isAnswer ? " was sent, and its answer was not read: " : " was not carried out: ";
    return InStep(step) + " " + name + how + code + "." + ProgressOf(trouble);
  }
  if (sign == Sign::UpdateFail && !job.isDetailed) {
    return "The update failed while it waited for the hub, at the start or after the reset into "
           "the loader; a log of level 0 would say which.";
  }
  if (sign == Sign::Mode || sign == Sign::FlashCode) {
    return step == Step::ToLoader ? "In the step 'reset into the loader' the hub accepted the "
                                    "reset and did not carry it "
                                    "out: it still runs its firmware."
                                  : "In the step 'wait for the loader' the hub came back running "
                                    "its firmware, as after "
                                    "a loss of power.";
  }
  std::string what = InStep(step) + ": " + trouble.line->meaning;
  if (sign == Sign::Exception && trouble.text.find(':') != std::string::npos) {
    what += " The log says: " + trouble.text + ".";
  }
  if (trouble.request) what += " The request was " + TextOf(*trouble.request) + ".";
  if (!code.empty()) what += " The reason is " + code + ".";
  return what;
}

std::string HubAfterUpdate(const Job& job) {
  switch (FailedStep(job)) {
    case Step::None:
      return "What it runs is not known from this log.";
    case Step::ToLoader:
      return "It is unchanged: it runs its firmware, or is in its loader with its firmware intact.";
    case Step::LoaderBack:
      return "Its firmware is intact; it is in its loader, or away.";
    case Step::Erase:
    case Step::Write:
    case Step::Check:
      return job.hasTwoBanks
                 ? "It runs its old firmware; the other bank is not complete."
                 : "It is in its loader, which no failure can destroy, and waits for an "
                   "image.";
    case Step::Start:
      return "The image is written and checked, and not started yet.";
    case Step::FirmwareBack:
      return "The image is written and checked. Whether it runs is not known.";
    case Step::Finish:
      return "The image is written, checked and started.";
    default:
      return job.isInLoader.value_or(false) ? "It is unchanged, in its loader."
                                            : "It is unchanged and runs what it ran before.";
  }
}

std::string HubAfter(const Job& job) {
  if (job.call == kUpdateCall) return HubAfterUpdate(job);
  const bool isFile = job.call == kReadImageCall || job.call == "QZ_GetHidBinFileVIDPID";
  const bool isList = IsListing(job.call);
  return isFile || isList || job.call.empty() ? "" : "Its firmware is unchanged.";
}

const char* AdviceForCode(ErrorClass error) {
  switch (error) {
    case ErrorClass::NoPermission:
      return "Run 'qzhid doctor': it says how to get permission to open the hub.";
    case ErrorClass::InUse:
      return "End the other program that uses the hub, then try again.";
    case ErrorClass::NoMemory:
      return "Free memory or close files, then try again.";
    case ErrorClass::Closed:
      return "Open the hub before the call: it was closed, or the connection was used for another "
             "hub.";
    default:
      return "";
  }
}

std::string AdviceForUpdate(const Job& job) {
  switch (FailedStep(job)) {
    case Step::Image:
      return "Check the image file with 'qzhid image FILE'.";
    case Step::Start:
    case Step::FirmwareBack:
    case Step::Finish:
      return "List for half a minute; if the hub is not there, plug it in again. Then read its "
             "version, and update it again if it is in its loader.";
    case Step::Erase:
    case Step::Write:
    case Step::Check:
      return job.hasTwoBanks ? "Check the cable, then update it again."
                             : "Check the cable, then write its firmware: 'qzhid recover --image "
                               "FILE'.";
    default:
      return "Close the handle, list the hubs, open the hub again and update it; plug it in again "
             "if it is not there.";
  }
}

std::string AdviceFor(const Session& session, const Job& job) {
  if (job.trouble && job.trouble->code) {
    const char* const advice =
        AdviceForCode(ClassOf(session.system, job.trouble->codeKind, *job.trouble->code));
    if (*advice != '\0') return advice;
  }
  if (job.call == kUpdateCall && (!job.trouble || job.trouble->line->sign != Sign::Rejected)) {
    return AdviceForUpdate(job);
  }
  return job.trouble ? job.trouble->line->advice : "";
}

}  // namespace

LogAccount ReadLog(const std::string& file, std::string_view beginning, std::istream& stream) {
  static const LogPatterns patterns;
  LogAccount account;
  account.file = file;
  JobTracker tracker(file, [&](Session&& session) { KeepSession(account, std::move(session)); });
  LogReader reader(patterns, [&](const LogEvent& event) { tracker.Take(event); });
  reader.Take(beginning);
  std::string piece(kPiece, '\0');
  while (stream) {
    stream.read(piece.data(), static_cast<std::streamsize>(piece.size()));
    reader.Take(std::string_view(piece).substr(0, static_cast<std::size_t>(stream.gcount())));
    const LogShape& shape = reader.Shape();
    if (shape.isWide || (shape.events == 0 && shape.bytes > kFarEnough)) break;
  }
  reader.End();
  tracker.End();
  account.shape = reader.Shape();
  CheckShape(file, account.shape);
  return account;
}

bool IsProblem(const Job& job) {
  return job.result == Result::Failed || job.result == Result::Unfinished;
}

Explanation Explain(const Session& session, const Job& job) {
  return {WhatOf(session, job), HubAfter(job), AdviceFor(session, job)};
}

std::string OmittedText(const LogAccount& account) {
  if (account.omittedSessions == 0 && account.omittedProblems == 0) return "";
  std::string text = "and " + std::to_string(account.omittedSessions) + " more sessions";
  if (account.omittedProblems > 0) {
    text += ", and " + std::to_string(account.omittedProblems) + " more calls that failed";
  }
  return text;
}

std::uint64_t CountProblems(const std::vector<LogAccount>& accounts) {
  std::uint64_t problems = 0;
  for (const LogAccount& account : accounts) {
    problems += account.omittedProblems;
    for (const Session& session : account.sessions) {
      problems += static_cast<std::uint64_t>(
          std::count_if(session.jobs.begin(), session.jobs.end(), IsProblem));
    }
  }
  return problems;
}

std::string Verdict(const std::vector<LogAccount>& accounts) {
  const std::uint64_t problems = CountProblems(accounts);
  if (problems == 0) return "nothing went wrong";
  for (const LogAccount& account : accounts) {
    for (const Session& session : account.sessions) {
      const auto first = std::find_if(session.jobs.begin(), session.jobs.end(), IsProblem);
      if (first == session.jobs.end()) continue;
      const std::string count = problems == 1 ? "" : std::to_string(problems) + " calls failed; ";
      return count + "the first to fail: " + TitleOf(*first) + " at " + TimeText(first->begin) +
             ", in the step '" + NameOf(FailedStep(*first)) + "'";
    }
  }
  return "";
}

std::vector<HarmlessLine> HarmlessLines(const std::vector<LogAccount>& accounts) {
  std::map<const LogLine*, std::uint64_t> counts;
  for (const LogAccount& account : accounts) {
    for (const auto& [line, count] : account.harmless) counts[line] += count;
  }
  std::vector<HarmlessLine> lines;
  for (const auto& [line, count] : counts) {
    std::string text = line->text;
    std::erase(text, '\n');
    lines.push_back({line, text, count});
  }
  return lines;
}

std::string HostText(const Session& session) {
  if (!session.host.empty()) return session.host;
  if (session.system == System::Windows) return "Windows, as line ends or handles show";
  return session.system == System::Linux ? "Linux, as handles show" : "not logged";
}

std::string AddressesOf(const Session& session) {
  std::string text;
  for (const std::string& address : session.addresses) {
    text += (text.empty() ? "" : ", ") + address;
  }
  return text;
}

const char* UnitOf(const Session& session) { return session.isCapture ? "frame" : "line"; }

std::string DurationText(const Session& session, std::int64_t durationUs) {
  char text[40] = {};
  std::snprintf(text, sizeof(text), session.isCapture ? "%.3f s" : "%.0f s",
                static_cast<double>(durationUs) / kUsPerSecond);
  return text;
}

std::string TimeText(std::int64_t timeUs) {
  using namespace std::chrono;
  const auto time = floor<seconds>(sys_time<microseconds>{microseconds(timeUs)});
  const auto day = floor<days>(time);
  const year_month_day date(day);
  const hh_mm_ss clock(time - day);
  char text[40] = {};
  std::snprintf(text, sizeof(text), "%04d-%02u-%02u %02d:%02d:%02d", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  return text;
}

}  // namespace qzhid
