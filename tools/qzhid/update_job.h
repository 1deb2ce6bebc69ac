// What becomes of one hub that is to be written, as its worker reports it.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "qzhid/hubs.h"
#include "qzhid/outcome.h"
#include "qzhid/process.h"
#include "qzhid/progress.h"
#include "qzhid/update_messages.h"

namespace qzhid {

/// Writes one hub, and reports how that goes on.
class Worker {
 public:
  virtual ~Worker() = default;

  /// Passes on what it has reported since, without waiting; false when it has ended. Before that it
  /// reports ReportDone or ReportFailed.
  virtual bool Poll(const Reporter& report) = 0;
  /// The answer to ReportFailing: it tries again, or it ends.
  virtual void Retry() = 0;
  virtual void GiveUp() = 0;
  /// The process to wait for; null when there is none.
  virtual const Process* Source() const { return nullptr; }
};

/// One hub, and its worker while it is written.
struct UpdateJob {
  enum class State { Ready, Writing, Done };
  /// What a report has changed.
  enum class Change { None, Step, Away, Retry, Done };

  Hub hub;
  Progress progress;
  State state = State::Ready;
  Outcome outcome = Outcome::NotStarted;
  std::string from = "?";   ///< what the hub ran before
  std::string runs = "?";   ///< what it runs now, as far as that is known
  int retries = 0;          ///< that were made
  std::string trouble{};    ///< why the last try failed, or why the hub is waited for
  bool isWaiting = false;   ///< for another process that writes the hub
  bool isReplaced = false;  ///< by another hub, while it was written
  std::optional<Failure> failure{};
  std::unique_ptr<Worker> worker{};

  void Finish(Outcome itsOutcome);
  void Finish(const Failure& itsFailure);
  /// Step: it has come to its next ten percent. A try that failed is repeated unless the user wants
  /// to stop.
  Change Take(const WorkerReport& report, bool stops);

 private:
  Change TakeProgress(const ReportProgress& report);
  Change TakeFailing(const ReportFailing& report, bool stops);
};

}  // namespace qzhid
