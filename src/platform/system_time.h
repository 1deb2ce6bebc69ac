#pragma once

#include "platform/platform.h"

namespace qzhid::platform {

/// The system's calendar time in the local time zone.
LocalTime SystemLocalTime();

}  // namespace qzhid::platform
