// A job while its lines are read: how far it has come, and what went wrong.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "qzhid/explain/hub_wait.h"
#include "qzhid/explain/log_jobs.h"
#include "qzhid/explain/log_reader.h"
#include "qzhid/explain/session_facts.h"

namespace qzhid {

class RunningJob {
 public:
  /// `event` is the first line that shows it; those of a request that failed may be before it.
  RunningJob(RunningSession& log, const LogEvent& event, std::uint64_t firstLine);

  void SetCall(const std::string& call, const LogEvent& event);
  /// Whether the line shows that the job is not what it seemed to be, but a listing.
  bool CorrectGuess(const std::string& call, const LogEvent& event);

  void Take(const LogEvent& event);
  /// A request has failed, whose lines are before the current one.
  void TakeRequest(Trouble failed);
  void TakeOpening(SeenDevices::Opening opening);

  /// Whether the job, whose end no line shows, has ended before this line.
  bool IsOver(const LogEvent& event) const;
  /// No line of it follows. Null when nothing is known about it.
  std::optional<Job> End();

  const Job& Known() const { return job_; }
  bool Is(const char* call) const { return job_.call == call; }
  bool IsList() const { return IsListing(job_.call); }
  /// Its last line was not seen.
  bool IsOpen() const { return !isEnded_; }

 private:
  // What the line says.
  void ApplyStep(const LogEvent& event);
  void ApplyTrouble(const LogEvent& event);
  void ApplyEnd(const LogEvent& event);

  // Steps and troubles.
  void EnterStep(Step step, const LogEvent& event);
  void AfterLoad(const LogEvent& event);
  void AfterConnect(const LogEvent& event);
  void AfterMode(const LogEvent& event);
  void AfterLoaderMode(bool isLoader, const LogEvent& event);
  void FailWait(const LogEvent& event);
  void FailStep(Step step, const LogEvent& event);
  void FailListing();
  void FailCall(const LogEvent& event);
  void AddTrouble(Trouble trouble);
  void AddTroubleOf(const LogEvent& event);
  void AddRequest(const LogEvent& event, std::size_t firstValue);
  void EndWith(Result result);
  Result LikelyResult() const;
  void CountHarmless(const LogLine* line, std::uint64_t count = 1);
  bool IsDetailed() const { return job_.isDetailed || log_.session.level == 0; }

  RunningSession& log_;
  Job job_;
  Step step_ = Step::None;
  FactReader facts_;
  HubWait wait_;
  bool isGuessed_ = false;    ///< the job was taken for an opening
  bool isEnded_ = false;      ///< the job's last line was seen
  bool isResetSent_ = false;  ///< into the loader
  bool isImageMissing_ = false;
  int forgets_ = 0;                      ///< lines "Into dummy remove function"
  std::optional<Trouble> lastRequest_;   ///< the one that the current line may be about
  std::optional<Trouble> clockTrouble_;  ///< that the frequency was not raised
};

}  // namespace qzhid
