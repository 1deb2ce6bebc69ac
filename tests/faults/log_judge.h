// What 'qzhid explain' would say about the log of a run, against what is known about the run.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "qzhid/explain/log_jobs.h"

namespace qzhid::test {

/// A bit for each step that can be meant.
using StepSet = unsigned;
constexpr StepSet Only(Step step) { return 1u << static_cast<unsigned>(step); }
inline constexpr StepSet kAnyStep = ~0u;

/// The step of an update under way when that percentage was reported last, and a request of that
/// key last sent. `isModeRead`: in the loader, too.
StepSet StepOfUpdate(int percent, std::uint16_t key, bool isModeRead, bool isSending);
/// The same when only the percentage is known; -1 before the first.
StepSet StepsOfUpdate(int percent);

/// Collects the lines of a run, without memory of its own.
class LogJudge {
 public:
  void Begin() {
    length_ = 0;
    isOn_ = true;
  }
  void End() { isOn_ = false; }
  void Add(std::string_view line);

  /// The run failed, by a fault in one of these steps of a call of that export.
  void JudgeFailure(const std::string& kind, std::string_view call, StepSet truth,
                    const std::string& place);
  /// The run succeeded: nothing may be called a problem.
  void JudgeSuccess(const std::string& kind, const std::string& place);

  struct Score {
    int failed = 0, named = 0, otherStep = 0, silent = 0, good = 0, blamed = 0;
  };
  const std::map<std::string, Score>& Scores() const { return scores_; }
  std::uint64_t UnknownLines() const { return unknown_; }

 private:
  struct Verdict {
    bool isProblem = false;
    std::string call;
    Step step = Step::None;
  };
  Verdict Explain();
  static void Complain(const char* how, const std::string& kind, const std::string& place,
                       const Verdict& verdict, int count);

  static constexpr std::size_t kRoom = 1 << 22;
  static inline char s_text[kRoom];
  std::size_t length_ = 0;
  bool isOn_ = false;
  std::uint64_t unknown_ = 0;
  std::map<std::string, Score> scores_;
};

}  // namespace qzhid::test
