#pragma once

#include <sys/epoll.h>

#include <cstdint>
#include <vector>

#include "common/descriptor.h"

namespace qzhub {

/// Waits for many descriptors; those that nothing happens to cost no time.
class Poller {
 public:
  /// Throws std::system_error when there are no descriptors left.
  Poller();

  /// Waits for other events of a descriptor than before: EPOLLIN, EPOLLOUT, or 0 for none at all.
  /// Each event comes with `owner`. Throws std::system_error.
  void Watch(int descriptor, std::uint32_t before, std::uint32_t events, void* owner) const;

  /// What has happened, after that many milliseconds at the latest; -1: whenever it happens.
  std::vector<epoll_event> Wait(int milliseconds) const;

 private:
  tools::Descriptor fd_;
};

}  // namespace qzhub
