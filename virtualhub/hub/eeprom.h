#pragma once

#include "virtualhub/hub/i2c_target.h"

namespace virtualhub {

/// Sizes in bytes; `addressBytes` is the number of memory-address bytes that it takes, 1 to 5.
struct EepromConfig {
  std::size_t size = 0x8000;
  std::size_t pageSize = 64;
  std::size_t addressBytes = 2;
};

/// A serial EEPROM. A write stays inside the page of its first byte and wraps there; a read
/// continues after the last byte with the first one. A read without address bytes continues where
/// the last transfer ended. Any other number of address bytes than its own is not acknowledged.
class Eeprom : public I2cTarget {
 public:
  explicit Eeprom(const EepromConfig& config) : config_(config), memory_(config.size, 0xFF) {}

  bool Write(ByteView address, ByteView data) override;
  bool Read(ByteView address, MutableBytes data) override;

  Bytes& memory() { return memory_; }

 private:
  bool SetPosition(ByteView address);

  EepromConfig config_;
  Bytes memory_;
  std::size_t position_ = 0;
};

}  // namespace virtualhub
