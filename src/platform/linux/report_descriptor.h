#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "platform/platform.h"

namespace qzhid::platform {

/// The lengths of the longest reports that a report descriptor declares (USB HID 1.11,
/// section 6.2.2), including the report ID byte, also for devices without IDs. No value
/// for a descriptor that is malformed or declares reports that are too long for HidCaps.
std::optional<HidCaps> ParseReportDescriptor(const std::vector<std::uint8_t>& descriptor);

}  // namespace qzhid::platform
