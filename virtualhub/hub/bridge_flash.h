#pragma once

#include "virtualhub/hub/nor_memory.h"

namespace virtualhub {

struct BridgeFlashConfig {
  std::size_t size = 0x100000;  ///< bytes
  std::uint32_t busyPolls = 0;  ///< busy status reads after each write or erase
};

/// The flash memory behind the hub's flash bridge (requests 0xF1, 0xCF, 0xF4, 0xF3). It is NOR
/// flash: writes clear bits only. While it is busy it rejects writes and erases.
class BridgeFlash {
 public:
  static constexpr std::uint8_t kReady = 0, kBusy = 1;

  explicit BridgeFlash(const BridgeFlashConfig& config)
      : busyPolls_(config.busyPolls), memory_(config.size) {}

  bool Write(std::uint32_t address, ByteView data);
  bool EraseAll();
  std::uint8_t ReadStatus();

  const Bytes& memory() { return memory_.Contents(); }

 private:
  std::uint32_t busyPolls_;
  std::uint32_t busyLeft_ = 0;
  NorMemory memory_;
};

}  // namespace virtualhub
