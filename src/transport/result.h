// Results of transport operations: 0, a code of the operating system or device, or kRefused.
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace qzhid {

/// A refused call, a missing object, or a failure for which the system has no code.
inline constexpr std::uint32_t kRefused = 0xFFFFFFFF;

/// What an operation returns for a system call that failed.
inline std::uint32_t ErrorOf(const platform::Status& status) {
  return status.code != 0 ? status.code : kRefused;
}

}  // namespace qzhid
