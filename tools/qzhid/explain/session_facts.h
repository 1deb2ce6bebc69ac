// What a log says of the host, the hubs and the images themselves, apart from what goes on.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "qzhid/explain/hub_wait.h"
#include "qzhid/explain/log_jobs.h"
#include "qzhid/explain/log_reader.h"

namespace qzhid {

/// A session while its lines are read, which are those of its jobs.
struct RunningSession {
  Session session{};
  System pointers = System::Unknown;  ///< by the way that handles are written
  System lineEnds = System::Unknown;  ///< by the ends of lines, which may have been converted
  SeenDevices devices{};
};

/// What the hub's status block says of it and of what it runs. Says nothing if it is too short.
void TakeStatusBlock(std::span<const std::uint8_t> status, Job& job);

/// Reads them from the lines of one job.
class FactReader {
 public:
  explicit FactReader(RunningSession& log) : log_(log) {}

  void Take(const LogEvent& event, Job& job);

 private:
  /// The first status block of a job says which hub it is.
  void TakeStatus(const LogEvent& event, Job& job);

  RunningSession& log_;
  std::vector<std::uint8_t> status_;
};

}  // namespace qzhid
