// Hubs that are written at the same time, each by a process of its own.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "qzhid/state.h"
#include "qzhid/update_display.h"
#include "qzhid/update_job.h"
#include "qzhid/update_options.h"
#include "qzhid/worker_process.h"

namespace qzhid {

/// What an update or a recovery is to do.
struct UpdateOptions : WriteOptions {
  std::vector<std::string> hubs;
  std::size_t jobs = 4;  ///< hubs that are written at a time
  bool isAll = false;
  bool isAgreed = false;
  bool isDryRun = false;
  ProgressStyle style = ProgressStyle::Auto;
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
  void Finish(UpdateJob& job, const Failure& failure);
  void Finish(UpdateJob& job, Outcome outcome);
  void ShowOutcome(const UpdateJob& job);
  void Check(UpdateJob& job, std::size_t attached);
  HubState Look(UpdateJob& job);
  void StartNext();
  bool Listen();
  void Take(UpdateJob& job, const WorkerReport& report);
  void SayInterrupted();
  std::vector<ShownHub> ShownHubs() const;

  Host& host_;
  const UpdateOptions& options_;
  const Image& image_;
  std::vector<UpdateJob> jobs_;
  WorkerStarter workers_;
  UpdateDisplay display_;
};

}  // namespace qzhid
