// What the hub's I2C master reaches.
#pragma once

#include "virtualhub/base/bytes.h"

namespace virtualhub {

/// One I2C target. False from any function is a missing acknowledge.
class I2cTarget {
 public:
  virtual ~I2cTarget() = default;

  /// Transfers with 0 to 5 memory-address bytes, least significant first.
  virtual bool Write(ByteView address, ByteView data) = 0;
  virtual bool Read(ByteView address, MutableBytes data) = 0;

  /// The hub's own block requests (0xDC out, 0xEC in); only block-command targets know them.
  virtual bool BlockOut(std::uint8_t command, ByteView payload);
  virtual bool BlockIn(std::uint8_t command, std::uint16_t address, MutableBytes data);
};

inline bool I2cTarget::BlockOut(std::uint8_t, ByteView) { return false; }
inline bool I2cTarget::BlockIn(std::uint8_t, std::uint16_t, MutableBytes) { return false; }

}  // namespace virtualhub
