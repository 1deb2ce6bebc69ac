// Ctrl-C while a hub must not be left.
#pragma once

namespace qzhid {

/// While an object of this class lives, the first interruption only tells the user that the work
/// goes on; a second one within two seconds is remembered. One object at a time.
class InterruptGuard {
 public:
  InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;
  ~InterruptGuard();

  /// The user wants to stop as soon as the hub can be left.
  static bool IsStopWanted();

 private:
  using Handler = void (*)(int);
  Handler oldInterrupt_;
  Handler oldTerminate_;
};

}  // namespace qzhid
