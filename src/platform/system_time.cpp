#include "platform/system_time.h"

#include <chrono>
#include <ctime>

namespace qzhid::platform {

LocalTime SystemLocalTime() {
  const std::time_t seconds = std::time(nullptr);
  std::tm now{};
#ifdef _WIN32
  localtime_s(&now, &seconds);
#else
  localtime_r(&seconds, &now);
#endif
  return {now.tm_year + 1900, now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec};
}

std::uint64_t SystemClockMs() {
  using Clock = std::chrono::steady_clock;
  static const Clock::time_point start = Clock::now();
  const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
  return static_cast<std::uint64_t>(elapsed.count());
}

}  // namespace qzhid::platform
