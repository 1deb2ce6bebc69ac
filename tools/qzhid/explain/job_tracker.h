// Follows the lines of a log, and makes jobs and sessions of them.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>

#include "qzhid/explain/log_jobs.h"
#include "qzhid/explain/log_reader.h"

namespace qzhid {

class JobTracker {
 public:
  /// Takes each session as it ends.
  using Receiver = std::function<void(Session&&)>;

  JobTracker(std::string file, Receiver receiver);

  void Take(const LogEvent& event);
  /// The log has ended.
  void End();

 private:
  // Which job a line belongs to.
  void TakeHost(const LogEvent& event);
  bool ContinueRequest(const LogEvent& event);
  void SwitchJob(const LogEvent& event);
  bool IsOver(const LogEvent& event) const;
  std::string CallOf(const LogEvent& event) const;
  void BeginJob(const LogEvent& event, const std::string& call);
  void NameJob(const LogEvent& event, const std::string& call);
  bool CorrectGuess(const LogEvent& event, const std::string& call);
  void EndJob();
  void BeginSession(const LogEvent& event);
  void EndSession();
  void Keep(Job&& job);
  void KeepRefused(const LogEvent& event);
  void KeepGpio();

  // What the line says.
  void Apply(const LogEvent& event);
  void ApplyFacts(const LogEvent& event);
  void ApplyStatus(const LogEvent& event);
  void ApplyStep(const LogEvent& event);
  void ApplyWait(const LogEvent& event);
  void ApplyTrouble(const LogEvent& event);
  void ApplyEnd(const LogEvent& event);

  // Steps and troubles.
  void EnterStep(Step step, const LogEvent& event);
  void AfterConnect(const LogEvent& event);
  void AfterMode(const LogEvent& event);
  void AfterLoaderMode(bool isLoader, const LogEvent& event);
  void CountHarmless(const LogLine* line, std::uint64_t count = 1);
  void FailWait(const LogEvent& event);
  void FailStep(Step step, const LogEvent& event);
  void AddTrouble(Trouble trouble);
  void EndWith(Result result);
  Trouble TroubleOf(const LogEvent& event) const;
  void CommitRequest();
  void CommitOpening(const LogEvent& event);
  void FailListing(const LogEvent& event);
  bool IsWaiting() const;
  bool IsDetailed() const { return job_->isDetailed || session_->level == 0; }
  bool Is(const char* call) const { return job_ && job_->call == call; }
  bool IsList() const { return job_ && job_->call.starts_with("QZ_ListAllHidDev"); }

  std::string file_;
  Receiver receiver_;
  std::optional<Session> session_;
  std::uint64_t keptJobs_ = 0;
  System pointers_ = System::Unknown;  ///< by the way that handles are written
  System lineEnds_ = System::Unknown;  ///< by the ends of lines, which may have been converted

  std::optional<Job> job_;
  Step step_ = Step::None;
  bool isGuessed_ = false;    ///< the job was taken for an opening
  bool isEnded_ = false;      ///< the job's last line was seen
  bool isArrived_ = false;    ///< the wait of the step has found the hub
  bool isConnected_ = false;  ///< and is over
  bool isResetSent_ = false;  ///< into the loader
  bool hasLeft_ = false;      ///< to reset
  bool isImageMissing_ = false;
  int forgets_ = 0;  ///< lines "Into dummy remove function"
  std::vector<std::uint8_t> status_;
  WaitFacts wait_;
  std::optional<Trouble> waitCause_;     ///< the last failure in the wait
  std::optional<Trouble> request_;       ///< that failed, while its lines are read
  std::optional<Trouble> lastRequest_;   ///< the one that the current line may be about
  std::optional<Trouble> clockTrouble_;  ///< that the frequency was not raised
  std::optional<Trouble> openCause_;     ///< why a device cannot be opened
  std::optional<Trouble> opening_;       ///< of a device, that failed
  std::set<std::uint32_t> strangers_;    ///< devices that are no hubs, or cannot be opened
  std::set<std::string> otherPaths_;     ///< locations of other hubs
};

}  // namespace qzhid
