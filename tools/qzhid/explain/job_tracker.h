// Follows the lines of a log, and makes jobs and sessions of them.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "qzhid/explain/log_jobs.h"
#include "qzhid/explain/log_reader.h"
#include "qzhid/explain/running_job.h"
#include "qzhid/explain/session_facts.h"

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
  void BeginSession(const LogEvent& event);
  void TakeHost(const LogEvent& event);
  void EndSession();

  // Which job a line belongs to.
  void SwitchJob(const LogEvent& event);
  std::string CallOf(const LogEvent& event) const;
  void EndJob();
  void KeepRefused(const LogEvent& event);

  // Requests that failed, and openings.
  bool ContinueRequest(const LogEvent& event);
  void CommitRequest();
  void CommitOpening(const LogEvent& event);
  void KeepGpio();

  std::string file_;
  Receiver receiver_;
  bool hasSession_ = false;
  RunningSession log_;
  JobKeeper keeper_;
  std::unique_ptr<RunningJob> job_;
  std::optional<Trouble> request_;  ///< that failed, while its lines are read
};

}  // namespace qzhid
