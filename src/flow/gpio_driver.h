// Drives a GPIO of the board around an update.
#pragma once

#include <cstdint>

namespace qzhid {

class IGpioDriver {
 public:
  virtual ~IGpioDriver() = default;
  /// Drives the line, or with `restore` 1 gives it back. Returns whether that worked.
  virtual bool SetGpio(std::uint8_t num, std::uint8_t level, std::uint8_t restore) = 0;
};

}  // namespace qzhid
