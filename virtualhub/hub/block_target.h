#pragma once

#include "virtualhub/hub/i2c_target.h"

namespace virtualhub {

struct BlockTargetConfig {
  std::size_t size = 0x10000;    ///< bytes of its memory, not necessarily a power of two
  std::uint32_t busyPolls = 0;   ///< busy status reads after each command
  std::uint8_t finalStatus = 1;  ///< the status after them: 1 complete, 2 or 3 error
};

/// A target that takes block commands. A write without address bytes is a command: its code, the
/// number of bytes that follow, then those bytes (address low, address high, count, data). A read
/// without address bytes gives the status, one at address 0x80 the data register: a count, then
/// the bytes that the last reading command fetched. Addresses wrap at the end of the memory.
class BlockTarget : public I2cTarget {
 public:
  explicit BlockTarget(const BlockTargetConfig& config)
      : config_(config), memory_(config.size, 0xFF) {}

  bool Write(ByteView address, ByteView data) override;
  bool Read(ByteView address, MutableBytes data) override;
  bool BlockOut(std::uint8_t command, ByteView payload) override;
  bool BlockIn(std::uint8_t command, std::uint16_t address, MutableBytes data) override;

  Bytes& memory() { return memory_; }

  /// Codes of the commands taken so far, in order.
  const Bytes& commands() const { return commands_; }

 private:
  bool Accept(std::uint8_t command, ByteView payload);
  void Store(std::uint32_t address, ByteView data);
  void Fetch(std::uint32_t address, MutableBytes data) const;
  std::uint8_t NextStatus();

  BlockTargetConfig config_;
  Bytes memory_;
  Bytes commands_;
  Bytes dataRegister_;
  std::uint32_t busyLeft_ = 0;
  bool idle_ = true;
};

}  // namespace virtualhub
