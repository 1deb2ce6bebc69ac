#include "virtualhub/capture/transfer_reader.h"

#include <algorithm>
#include <utility>

#include "virtualhub/bus/urb_status.h"

namespace virtualhub {

namespace {

// Transfers that are under way at the same time. More are those of a damaged capture.
constexpr std::size_t kMostOpen = 256;

}  // namespace

bool TransferReader::Next(UsbTransfer& transfer) {
  while (file_.Next(packet_)) {
    if (!IsUsbLink(packet_.linkType)) {
      otherLink_ = packet_.linkType;
      continue;
    }
    linkType_ = packet_.linkType;
    const auto decoded = DecodeUsbPacket(packet_);
    if (decoded && TakePacket(*decoded, transfer)) return true;
  }
  RequireUsb();
  if (open_.empty()) return false;
  transfer = std::move(open_.extract(Oldest()).mapped());
  return true;
}

void TransferReader::RequireUsb() const {
  if (linkType_ != 0) return;
  if (file_.frames() == 0) throw CaptureError("has no packets");
  throw CaptureError("has no packets of usbmon, USBPcap or QEMU, but of link type " +
                     std::to_string(otherLink_));
}

// Whether the packet ends a transfer.
bool TransferReader::TakePacket(const UsbPacket& packet, UsbTransfer& ended) {
  const Key key{packet.address, packet.type, packet.id};
  if (packet.event == UsbPacket::Event::Begin) {
    Begin(key, packet);
    return false;
  }
  const auto found = open_.find(key);
  if (found == open_.end()) return false;  // it began before the capture
  AddData(found->second, packet);
  if (packet.event == UsbPacket::Event::MoreData) return false;
  ended = std::move(open_.extract(found).mapped());
  ended.endFrame = packet_.number;
  ended.endUs = std::max(packet_.timeUs, ended.beginUs);
  ended.status = packet.status;
  return true;
}

void TransferReader::Begin(const Key& key, const UsbPacket& packet) {
  if (packet.type == TransferType::Control && !packet.setup) return;
  if (open_.size() == kMostOpen && !open_.contains(key)) {
    open_.erase(Oldest());
  }
  UsbTransfer& begun = open_[key] = {};
  begun.frame = packet_.number;
  begun.beginUs = begun.endUs = packet_.timeUs;
  begun.address = packet.address;
  begun.type = packet.type;
  begun.endpoint = packet.endpoint;
  if (packet.setup) begun.setup = *packet.setup;
  begun.status = kUrbUnderWay;
  AddData(begun, packet);
}

void TransferReader::AddData(UsbTransfer& transfer, const UsbPacket& packet) {
  if (transfer.type != TransferType::Control && transfer.type != TransferType::Interrupt) return;
  // Data to the device come with the beginning, data to the host with the end.
  const auto wanted = transfer.IsIn() ? UsbPacket::Event::End : UsbPacket::Event::Begin;
  if (packet.event != wanted && packet.event != UsbPacket::Event::MoreData) return;
  const ByteView all(packet_.data);
  const ByteView held = all.subspan(std::min(packet.dataAt, all.size()));
  const ByteView data = held.first(std::min(packet.dataSize, held.size()));
  transfer.isCut = transfer.isCut || data.size() < packet.dataSize;
  if (data.empty()) return;
  transfer.dataFrame = packet_.number;
  transfer.dataAt = packet.dataAt;
  constexpr std::size_t kMost = CaptureFile::kMostPacket;  // a damaged capture may add for ever
  Append(transfer.data, data.first(std::min(kMost - transfer.data.size(), data.size())));
}

TransferReader::Open::iterator TransferReader::Oldest() {
  return std::min_element(open_.begin(), open_.end(), [](const auto& a, const auto& b) {
    return a.second.frame < b.second.frame;
  });
}

}  // namespace virtualhub
