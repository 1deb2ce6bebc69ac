#pragma once

#include <chrono>

#include "common/descriptor.h"

namespace qzhub {

/// The request to end: every thread that waits for something also waits for this. It stays set.
class StopEvent {
 public:
  StopEvent();

  /// Becomes and stays readable once the end is requested.
  int fd() const { return fd_.get(); }

  /// Any thread, or a signal handler.
  void Request() const;

  /// Waits that long; true as soon as the end is requested.
  bool WaitFor(std::chrono::milliseconds time) const;

  /// From now on SIGINT and SIGTERM request the end. For one event in a process.
  void RequestOnSignals() const;

 private:
  tools::Descriptor fd_;
};

}  // namespace qzhub
