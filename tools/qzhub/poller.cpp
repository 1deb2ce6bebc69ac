#include "qzhub/poller.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace qzhub {

namespace {

constexpr std::size_t kMostEvents = 64;  // at once; the others come next

}  // namespace

Poller::Poller() : fd_(epoll_create1(EPOLL_CLOEXEC)) {
  if (!fd_) throw std::system_error(errno, std::generic_category(), "epoll_create1");
}

void Poller::Watch(int descriptor, std::uint32_t before, std::uint32_t events, void* owner) const {
  if (before == events) return;
  const int change = before == 0 ? EPOLL_CTL_ADD : events == 0 ? EPOLL_CTL_DEL : EPOLL_CTL_MOD;
  epoll_event event{};
  event.events = events;
  event.data.ptr = owner;
  if (epoll_ctl(fd_.get(), change, descriptor, &event) != 0) {
    throw std::system_error(errno, std::generic_category(), "epoll_ctl");
  }
}

std::vector<epoll_event> Poller::Wait(int milliseconds) const {
  std::vector<epoll_event> events(kMostEvents);
  const int count = epoll_wait(fd_.get(), events.data(), kMostEvents, milliseconds);
  events.resize(static_cast<std::size_t>(std::max(count, 0)));  // a signal may interrupt it
  return events;
}

}  // namespace qzhub
