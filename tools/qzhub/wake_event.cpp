#include "qzhub/wake_event.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace qzhub {

WakeEvent::WakeEvent() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!fd_) throw std::system_error(errno, std::generic_category(), "eventfd");
}

void WakeEvent::Set() const {
  const std::uint64_t one = 1;
  // It can only fail when the event is already set.
  [[maybe_unused]] const auto written = write(fd_.get(), &one, sizeof(one));
}

void WakeEvent::Clear() const {
  std::uint64_t count = 0;
  // It can only fail when the event is not set.
  [[maybe_unused]] const auto taken = read(fd_.get(), &count, sizeof(count));
}

}  // namespace qzhub
