// Sets a GPIO line of the board around an update.
#pragma once

#include <cstdint>

namespace qzhid {

class IGpioDriver {
 public:
  virtual ~IGpioDriver() = default;
  /// Sets the line, or with `restore` 1 restores it. Returns whether that worked.
  virtual bool SetGpio(std::uint8_t num, std::uint8_t level, std::uint8_t restore) = 0;
};

}  // namespace qzhid
