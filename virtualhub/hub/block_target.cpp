#include "virtualhub/hub/block_target.h"

#include <algorithm>

namespace virtualhub {

namespace {

constexpr std::uint8_t kDataRegister = 0x80;
constexpr std::uint8_t kIdleStatus = 1;
constexpr std::uint8_t kLongestFetch = 59;

enum class Form { Unknown, Plain, Store, StoreLong, Fetch, OneByte };

Form FormOf(std::uint8_t command) {
  switch (command) {
    case 1:
    case 2:
    case 5:
      return Form::Plain;
    case 4:
    case 6:
    case 19:
    case 20:
      return Form::Store;
    case 7:
      return Form::StoreLong;
    case 3:
    case 16:
    case 36:
    case 38:
    case 51:
    case 52:
    case 53:
    case 58:
      return Form::Fetch;
    case 22:
      return Form::OneByte;
    default:
      return Form::Unknown;
  }
}

}  // namespace

bool BlockTarget::Write(ByteView address, ByteView data) {
  if (!address.empty() || data.size() < 2) return false;
  const ByteView payload = data.subspan(2);
  // The fetching form of command 16 announces four bytes and sends two.
  const bool shortFetch = data[0] == 16 && data[1] == 4 && payload.size() == 2;
  if (data[1] != payload.size() && !shortFetch) return false;
  return BlockOut(data[0], payload);
}

bool BlockTarget::BlockOut(std::uint8_t command, ByteView payload) {
  if (!Accept(command, payload)) return false;
  commands_.push_back(command);
  busyLeft_ = config_.busyPolls;
  idle_ = false;
  return true;
}

bool BlockTarget::Accept(std::uint8_t command, ByteView payload) {
  const Form form = FormOf(command);
  if (form == Form::Unknown) return false;
  if (form == Form::OneByte) return payload.size() == 1;
  const std::size_t head = form == Form::StoreLong ? 4 : 3;
  if (form == Form::Fetch && payload.size() == 2) {
    dataRegister_.assign(std::size_t{1} + kLongestFetch, kLongestFetch);
    Fetch(LittleEndian16(payload, 0), MutableBytes(dataRegister_).subspan(1));
    return true;
  }
  if (payload.size() < head) return false;
  const std::uint8_t count = payload[head - 1];
  std::uint32_t address = LittleEndian16(payload, 0);
  if (form == Form::StoreLong) address |= static_cast<std::uint32_t>(payload[2]) << 16;
  if (form == Form::Store || form == Form::StoreLong) {
    if (payload.size() != head + count) return false;
    Store(address, payload.subspan(head));
  } else if (form == Form::Fetch) {
    dataRegister_.assign(std::size_t{1} + count, count);
    Fetch(address, MutableBytes(dataRegister_).subspan(1));
  }
  return true;
}

bool BlockTarget::Read(ByteView address, MutableBytes data) {
  std::fill(data.begin(), data.end(), std::uint8_t{0});
  if (data.empty()) return true;
  if (address.empty()) {
    data[0] = NextStatus();
    return true;
  }
  if (address.size() != 1 || address[0] != kDataRegister) return false;
  std::copy_n(dataRegister_.begin(), std::min(data.size(), dataRegister_.size()), data.begin());
  return true;
}

bool BlockTarget::BlockIn(std::uint8_t command, std::uint16_t address, MutableBytes data) {
  commands_.push_back(command);
  Fetch(address, data);
  return true;
}

void BlockTarget::Store(std::uint32_t address, ByteView data) {
  for (std::size_t i = 0; i < data.size(); ++i) memory_[(address + i) % memory_.size()] = data[i];
}

void BlockTarget::Fetch(std::uint32_t address, MutableBytes data) const {
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = memory_[(address + i) % memory_.size()];
}

std::uint8_t BlockTarget::NextStatus() {
  if (idle_) return kIdleStatus;
  if (busyLeft_ == 0) return config_.finalStatus;
  --busyLeft_;
  return 0;
}

}  // namespace virtualhub
