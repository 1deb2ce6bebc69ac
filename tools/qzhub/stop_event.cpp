#include "qzhub/stop_event.h"

#include <poll.h>

#include <atomic>
#include <cerrno>
#include <csignal>

namespace qzhub {

namespace {

std::atomic<const WakeEvent*> signalled{nullptr};

void OnSignal(int) {
  const int error = errno;
  signalled.load()->Set();
  errno = error;
}

}  // namespace

bool StopEvent::WaitFor(std::chrono::milliseconds time) const {
  pollfd waited{event_.fd(), POLLIN, 0};
  return poll(&waited, 1, static_cast<int>(time.count())) > 0;
}

void StopEvent::RequestOnSignals() const {
  signalled = &event_;
  struct sigaction action {};
  action.sa_handler = OnSignal;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

}  // namespace qzhub
