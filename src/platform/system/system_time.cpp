#include "platform/system/system_time.h"

#include <chrono>
#include <ctime>

namespace qzhid::platform {

LocalTime SystemLocalTime() {
  const std::time_t seconds = std::time(nullptr);
#ifdef _WIN32
  std::tm now{};
  localtime_s(&now, &seconds);
#else
  // Many lines are logged in one second, and all threads convert under one lock of the system.
  thread_local std::time_t converted = 0;
  thread_local std::tm now{};
  if (seconds != converted || now.tm_year == 0) localtime_r(&seconds, &now);
  converted = seconds;
#endif
  return {now.tm_year + 1900, now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec};
}

std::uint64_t SystemClockMs() {
  const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now().time_since_epoch());
  return static_cast<std::uint64_t>(elapsed.count());
}

}  // namespace qzhid::platform
