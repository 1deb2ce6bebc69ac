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
std::atomic<bool> stopWanted{false};

void OnSignal(int number) {
  using std::chrono::milliseconds;
  // Some systems fall back to the default behaviour at each signal.
  static_cast<void>(std::signal(number, OnSignal));
  const std::int64_t now =
      std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
          .count();
  if (now - lastSignal.exchange(now) > kTwiceWithinMs) {
    system::WriteFromSignal(
        "\nqzhid: the hub must not be left now, the update goes on; a second Ctrl-C within two "
        "seconds stops as soon as the hub can be left\n");
    return;
  }
  stopWanted = true;
  system::WriteFromSignal("\nqzhid: stopping as soon as the hub can be left\n");
}

}  // namespace

InterruptGuard::InterruptGuard()
    : oldInterrupt_(std::signal(SIGINT, OnSignal)), oldTerminate_(std::signal(SIGTERM, OnSignal)) {
  lastSignal = kNever;
  stopWanted = false;
}

InterruptGuard::~InterruptGuard() {
  static_cast<void>(std::signal(SIGINT, oldInterrupt_));
  static_cast<void>(std::signal(SIGTERM, oldTerminate_));
}

bool InterruptGuard::IsStopWanted() { return stopWanted; }

}  // namespace qzhid
