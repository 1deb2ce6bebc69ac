// Hubs that are written at the same time, each by a process of its own.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "qzhid/hubs.h"
#include "qzhid/image.h"
#include "qzhid/process.h"
#include "qzhid/progress.h"
#include "qzhid/update_messages.h"

namespace qzhid {

/// What an update or a recovery is to do.
struct UpdateOptions {
  std::vector<std::string> hubs;
  std::string image;
  std::size_t jobs = 4;  ///< hubs that are written at a time
  bool isAll = false;
  bool isAgreed = false;
  bool isForced = false;
  bool isReinstall = false;
  bool staysInLoader = false;
  bool isRecovery = false;
};

/// One hub and its worker.
struct UpdateJob {
  enum class State { Checking, Ready, Writing, Done, Failed };

  Hub hub;
  Progress progress;
  std::string location{};  ///< by which the worker finds the hub; empty: the only one
  State state = State::Checking;
  std::string from = "?";  ///< what the hub ran before
  std::string runs = "?";  ///< what it runs now, as far as that is known
  std::optional<Failure> failure{};
  std::optional<Process> worker{};
  std::string heard{};  ///< the beginning of the worker's next line
  std::string log{};    ///< the worker's log file, where there is one
};

class UpdateRun {
 public:
  UpdateRun(Host& host, const UpdateOptions& options, const Image& image,
            const std::vector<Hub>& hubs);

  /// Has the workers check whether the hubs can be written; those that can are then Ready.
  void Check();
  /// Writes those that are Ready. An interruption does not end that; a second one keeps further
  /// hubs from being started.
  void Write();

  const std::vector<UpdateJob>& Jobs() const { return jobs_; }
  std::size_t Count(UpdateJob::State state) const;

 private:
  void Start(UpdateJob& job, std::size_t number);
  bool Listen();
  void HearLines(UpdateJob& job);
  void Hear(UpdateJob& job, const std::string& line);
  void Take(UpdateJob& job, const WorkerReport& report);
  void ShowProgress(const UpdateJob& job) const;
  void Distrust(UpdateJob& job, const std::string& reason);
  void End(UpdateJob& job);
  void StartNext();
  void LeaveOthers();
  void SayInterrupted();
  void Draw();

  Host& host_;
  const UpdateOptions& options_;
  const Image& image_;
  std::vector<UpdateJob> jobs_;
  LiveLines live_;
  bool isLive_ = false;
};

}  // namespace qzhid
