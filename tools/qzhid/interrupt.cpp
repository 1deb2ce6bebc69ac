#include "qzhid/interrupt.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>

#include "qzhid/system.h"

namespace qzhid {

namespace {

constexpr std::int64_t kTwiceWithinMs = 2000;
constexpr std::int64_t kNever = -kTwiceWithinMs - 1;

std::atomic<std::int64_t> lastSignal{kNever};
std::atomic<bool> isInterrupted{false};
std::atomic<bool> isStopWanted{false};

void OnSignal(int number) {
  using std::chrono::milliseconds;
  // Some systems fall back to the default behaviour at each signal.
  static_cast<void>(std::signal(number, OnSignal));
  const std::int64_t now =
      std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
          .count();
  if (now - lastSignal.exchange(now) <= kTwiceWithinMs) isStopWanted = true;
  isInterrupted = true;
}

}  // namespace

InterruptGuard::InterruptGuard() {
  lastSignal = kNever;
  isInterrupted = isStopWanted = false;
  for (const int number : system::kInterrupts) old_.push_back(std::signal(number, OnSignal));
}

InterruptGuard::~InterruptGuard() {
  for (std::size_t i = 0; i < old_.size(); ++i) {
    static_cast<void>(std::signal(system::kInterrupts[i], old_[i]));
  }
}

bool InterruptGuard::TakeInterrupt() { return isInterrupted.exchange(false); }

bool InterruptGuard::IsStopWanted() { return isStopWanted; }

}  // namespace qzhid
