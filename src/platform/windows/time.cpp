// Waiting, the steady clock and local time.
#include "platform/windows/system.h"

#include <chrono>
#include <ctime>

namespace qzhid::platform {

void SleepMs(std::uint32_t milliseconds) { Sleep(milliseconds); }

std::uint64_t ClockMs() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

LocalTime GetLocalTime() {
  const std::time_t seconds = std::time(nullptr);
  std::tm now{};
  if (localtime_s(&now, &seconds) != 0) return {};
  return {now.tm_year + 1900, now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec};
}

}  // namespace qzhid::platform
