#pragma once

#include "platform/platform.h"

namespace qzhid::platform {

/// The system's calendar time in the local time zone.
LocalTime SystemLocalTime();

/// Milliseconds of the system's steady clock since its first use here.
std::uint64_t SystemClockMs();

}  // namespace qzhid::platform
