// Ctrl-C while hubs are written.
#pragma once

#include <vector>

namespace qzhid {

/// While an object of this class lives, interruptions are only counted. One object at a time.
class InterruptGuard {
 public:
  InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;
  ~InterruptGuard();

  /// The user has interrupted since the last call.
  static bool TakeInterrupt();
  /// The user has interrupted twice within two seconds.
  static bool IsStopWanted();

 private:
  std::vector<void (*)(int)> old_;
};

}  // namespace qzhid
