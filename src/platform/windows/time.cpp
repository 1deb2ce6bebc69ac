// Waiting, the steady clock and local time.
#include <chrono>

#include "platform/system_time.h"
#include "platform/windows/system.h"

namespace qzhid::platform {

void SleepMs(std::uint32_t milliseconds) { Sleep(milliseconds); }

std::uint64_t ClockMs() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

LocalTime GetLocalTime() { return SystemLocalTime(); }

}  // namespace qzhid::platform
