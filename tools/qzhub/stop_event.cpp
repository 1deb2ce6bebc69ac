#include "qzhub/stop_event.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <system_error>

namespace qzhub {

namespace {

std::atomic<int> signalledFd{-1};

void WriteOne(int fd) {
  const std::uint64_t one = 1;
  // It can only fail when the event is already set.
  [[maybe_unused]] const auto written = write(fd, &one, sizeof(one));
}

void OnSignal(int) {
  const int error = errno;
  WriteOne(signalledFd);
  errno = error;
}

}  // namespace

StopEvent::StopEvent() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!fd_) throw std::system_error(errno, std::generic_category(), "eventfd");
}

void StopEvent::Request() const { WriteOne(fd_.get()); }

bool StopEvent::WaitFor(std::chrono::milliseconds time) const {
  pollfd waited{fd_.get(), POLLIN, 0};
  return poll(&waited, 1, static_cast<int>(time.count())) > 0;
}

void StopEvent::RequestOnSignals() const {
  signalledFd = fd_.get();
  struct sigaction action {};
  action.sa_handler = OnSignal;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

}  // namespace qzhub
