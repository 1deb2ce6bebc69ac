// Hubs that are written at the same time, each by a process of its own.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "qzhid/hubs.h"
#include "qzhid/image.h"
#include "qzhid/outcome.h"
#include "qzhid/process.h"
#include "qzhid/progress.h"
#include "qzhid/update_display.h"
#include "qzhid/update_messages.h"

namespace qzhid {

/// What an update or a recovery is to do.
struct UpdateOptions {
  std::vector<std::string> hubs;
  std::string image;
  std::string sha256;                      ///< what the image must have; empty: any
  std::optional<std::size_t> flashSize{};  ///< of the hubs in bytes, where the user knows it
  std::size_t jobs = 4;                    ///< hubs that are written at a time
  int retries = 2;
  int patience = 30;  ///< seconds to wait for a hub that has left
  bool isAll = false;
  bool isAgreed = false;
  bool isDryRun = false;
  bool staysInLoader = false;
  UpdateRules rules;
  ProgressStyle style = ProgressStyle::Auto;
};

/// One hub, and its worker while it is written.
struct UpdateJob {
  enum class State { Ready, Writing, Done };

  Hub hub;
  Progress progress;
  State state = State::Ready;
  Outcome outcome = Outcome::NotStarted;
  std::string from = "?";  ///< what the hub ran before
  std::string runs = "?";  ///< what it runs now, as far as that is known
  int retries = 0;         ///< that were made
  std::optional<Failure> failure{};
  std::optional<Process> worker{};
  std::string heard{};  ///< the beginning of the worker's next line
  std::string log{};    ///< the worker's log file, where there is one
};

class UpdateRun {
 public:
  UpdateRun(Host& host, const UpdateOptions& options, const Image& image,
            const std::vector<Hub>& hubs);

  /// Finds out which hubs are to be written; those are then Ready.
  void Check();
  /// Says of those that are Ready that they were not started.
  void Skip();
  /// Writes those that are Ready. An interruption does not end that; a second one keeps further
  /// hubs from being started.
  void Write();

  const std::vector<UpdateJob>& Jobs() const { return jobs_; }
  std::size_t Count(UpdateJob::State state) const;
  std::size_t Count(Outcome outcome) const;

 private:
  void Finish(UpdateJob& job, Outcome outcome, const Failure* failure = nullptr);
  void Finish(UpdateJob& job, const Failure& failure);
  void Check(UpdateJob& job, std::size_t attached);
  void Start(UpdateJob& job, std::size_t number);
  void StartNext();
  bool Listen();
  void HearLines(UpdateJob& job);
  void Hear(UpdateJob& job, const std::string& line);
  void Take(UpdateJob& job, const WorkerReport& report);
  void TakeFailing(UpdateJob& job, const ReportFailing& report);
  void End(UpdateJob& job);
  void SayInterrupted();
  std::vector<ShownHub> ShownHubs() const;

  Host& host_;
  const UpdateOptions& options_;
  const Image& image_;
  std::string imageCopy_;
  std::vector<UpdateJob> jobs_;
  UpdateDisplay display_;
};

}  // namespace qzhid
