#include "virtualhub/hub/eeprom.h"

namespace virtualhub {

bool Eeprom::SetPosition(ByteView address) {
  if (address.size() != config_.addressBytes) return false;
  std::uint64_t position = 0;
  for (std::size_t i = address.size(); i > 0; --i) position = position << 8 | address[i - 1];
  position_ = static_cast<std::size_t>(position % memory_.size());
  return true;
}

bool Eeprom::Write(ByteView address, ByteView data) {
  if (!SetPosition(address)) return false;
  const std::size_t page = position_ / config_.pageSize * config_.pageSize;
  for (const std::uint8_t byte : data) {
    memory_[position_] = byte;
    position_ = page + (position_ + 1 - page) % config_.pageSize;
  }
  return true;
}

bool Eeprom::Read(ByteView address, MutableBytes data) {
  if (!address.empty() && !SetPosition(address)) return false;
  for (std::uint8_t& byte : data) {
    byte = memory_[position_];
    position_ = (position_ + 1) % memory_.size();
  }
  return true;
}

}  // namespace virtualhub
