#include "faults/log_judge.h"

#include <cstdio>
#include <cstring>

#include "qzhid/explain/job_tracker.h"

namespace qzhid::test {

StepSet StepOfUpdate(int percent, std::uint16_t key, bool isModeRead, bool isSending) {
  const bool isStatus = key == 0xC009, isErase = key == 0x40E8, isStart = key == 0x40E9;
  if (percent < 10) return Only(isStatus ? Step::Mode : Step::Find);
  if (percent < 20) return Only(Step::ToLoader);
  if (percent < 30) {
    if (isStatus) return Only(Step::Mode);
    return Only(isModeRead ? Step::Erase : Step::LoaderBack);
  }
  if (percent < 70) return Only(isErase ? Step::Erase : Step::Write);
  if (percent < 90) return Only(Step::Check);
  if (percent == 100) return Only(Step::Finish);
  return Only(isStart && isSending ? Step::Start : Step::FirmwareBack);
}

StepSet StepsOfUpdate(int percent) {
  if (percent < 0) return Only(Step::Image) | Only(Step::Find);
  if (percent < 10) return Only(Step::Find) | Only(Step::Mode);
  if (percent < 20) return Only(Step::ToLoader);
  if (percent < 30) return Only(Step::LoaderBack) | Only(Step::Mode) | Only(Step::Erase);
  if (percent < 70) return Only(Step::Write) | Only(Step::Erase);
  if (percent < 90) return Only(Step::Check);
  return Only(Step::Start) | Only(Step::FirmwareBack) | Only(Step::Finish);
}

void LogJudge::Add(std::string_view line) {
  if (!isOn_ || line.size() > kRoom - length_) return;
  std::memcpy(s_text + length_, line.data(), line.size());
  length_ += line.size();
}

LogJudge::Verdict LogJudge::Explain() {
  static const LogPatterns patterns;
  Verdict verdict;
  JobTracker tracker("", [&](Session&& session) {
    for (const auto& job : session.jobs) {
      const bool isFine = job.result == qzhid::Result::Done;
      if (isFine || verdict.isProblem) continue;
      verdict = {true, job.call, FailedStep(job)};
    }
  });
  LogReader reader(patterns, [&](const LogEvent& event) {
    tracker.Take(event);
    if (event.line == nullptr && unknown_++ < 5) {
      std::fprintf(stderr, "unknown line: %.*s, %.*s\n", static_cast<int>(event.name.size()),
                   event.name.data(), static_cast<int>(event.text.size()), event.text.data());
    }
  });
  reader.Take({s_text, length_});
  reader.End();
  tracker.End();
  return verdict;
}

void LogJudge::JudgeFailure(const std::string& kind, std::string_view call, StepSet truth,
                            const std::string& place) {
  Score& score = scores_[kind];
  const Verdict verdict = Explain();
  const bool isNamed =
      verdict.isProblem && verdict.call.starts_with(call) && (truth & Only(verdict.step)) != 0;
  ++score.failed;
  ++(isNamed ? score.named : verdict.isProblem ? score.otherStep : score.silent);
  if (!isNamed) Complain("misjudged", kind, place, verdict, score.failed - score.named);
}

void LogJudge::JudgeSuccess(const std::string& kind, const std::string& place) {
  Score& score = scores_[kind];
  const Verdict verdict = Explain();
  ++score.good;
  if (!verdict.isProblem) return;
  Complain("blamed", kind, place, verdict, ++score.blamed);
}

/// Prints the first cases of a kind.
void LogJudge::Complain(const char* how, const std::string& kind, const std::string& place,
                        const Verdict& verdict, int count) {
  constexpr int kMost = 3;
  if (count > kMost) return;
  std::printf("%s: %s|%s|the log says %s, %s\n", how, kind.c_str(), place.c_str(),
              verdict.isProblem ? verdict.call.c_str() : "nothing", NameOf(verdict.step));
}

}  // namespace qzhid::test
