// The option that QZ_DllPassPara sets for later updates.
#pragma once

#include <atomic>
#include <cstdint>

namespace qzhid {

/// 0 at first: updates start the new firmware. Any other value: the hub stays in its ROM code.
inline std::atomic<std::uint32_t>& PassPara() {
  static std::atomic<std::uint32_t> value{0};
  return value;
}

}  // namespace qzhid
