#include "virtualhub/hub/bridge_flash.h"

namespace virtualhub {

bool BridgeFlash::Write(std::uint32_t address, ByteView data) {
  if (busyLeft_ > 0 || !memory_.Program(address, data)) return false;
  busyLeft_ = busyPolls_;
  return true;
}

bool BridgeFlash::EraseAll() {
  if (busyLeft_ > 0) return false;
  memory_.Erase();
  busyLeft_ = busyPolls_;
  return true;
}

std::uint8_t BridgeFlash::ReadStatus() {
  if (busyLeft_ == 0) return kReady;
  --busyLeft_;
  return kBusy;
}

}  // namespace virtualhub
