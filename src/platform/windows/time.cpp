// Waiting, the steady clock and local time.
#include "platform/system/system_time.h"
#include "platform/system/windows/system.h"

namespace qzhid::platform {

void SleepMs(std::uint32_t milliseconds) { Sleep(milliseconds); }

std::uint64_t ClockMs() { return SystemClockMs(); }

LocalTime GetLocalTime() { return SystemLocalTime(); }

}  // namespace qzhid::platform
