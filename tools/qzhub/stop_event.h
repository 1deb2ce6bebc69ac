#pragma once

#include <chrono>

#include "qzhub/wake_event.h"

namespace qzhub {

/// The request to end: every thread that waits for something also waits for this. It stays set.
class StopEvent {
 public:
  /// Becomes and stays readable once the end is requested.
  int fd() const { return event_.fd(); }

  /// Any thread, or a signal handler.
  void Request() const { event_.Set(); }

  /// Waits that long; true as soon as the end is requested.
  bool WaitFor(std::chrono::milliseconds time) const;

  /// From now on SIGINT and SIGTERM request the end. For one event in a process.
  void RequestOnSignals() const;

 private:
  WakeEvent event_;
};

}  // namespace qzhub
