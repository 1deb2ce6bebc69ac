// What differs between the systems that tests run on; the other one is support/windows. Here:
// Linux, with the library's code inside the test program.
#pragma once

#include <cerrno>
#include <cstdint>

#include "support/log_capture.h"

namespace qzhid::test {

/// What the library logs while it lives.
using ExportLog = LogCapture;

inline constexpr std::uint32_t kStalled = EPIPE;  // the device refuses a request
inline constexpr std::uint32_t kGone = ENODEV;    // the device has left the bus
inline constexpr std::uint32_t kInvalidHandle = EBADF;

}  // namespace qzhid::test
