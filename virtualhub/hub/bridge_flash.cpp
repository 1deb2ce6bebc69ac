#include "virtualhub/hub/bridge_flash.h"

#include <algorithm>

namespace virtualhub {

bool BridgeFlash::Write(std::uint32_t address, ByteView data) {
  if (busyLeft_ > 0 || !Fits(memory_.size(), address, data.size())) return false;
  for (std::size_t i = 0; i < data.size(); ++i) memory_[address + i] &= data[i];
  busyLeft_ = busyPolls_;
  return true;
}

bool BridgeFlash::EraseAll() {
  if (busyLeft_ > 0) return false;
  std::fill(memory_.begin(), memory_.end(), std::uint8_t{0xFF});
  busyLeft_ = busyPolls_;
  return true;
}

std::uint8_t BridgeFlash::ReadStatus() {
  if (busyLeft_ == 0) return kReady;
  --busyLeft_;
  return kBusy;
}

}  // namespace virtualhub
