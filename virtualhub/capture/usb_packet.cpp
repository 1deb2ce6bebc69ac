#include "virtualhub/capture/usb_packet.h"

#include <algorithm>
#include <string>

#include "virtualhub/bus/urb_status.h"

namespace virtualhub {

namespace {

constexpr std::size_t kUsbmonHeader = 48, kMmappedHeader = 64;
constexpr std::size_t kUsbpcapHeader = 27, kUsbpcapControlHeader = 28;
constexpr std::size_t kSetupSize = 8;

void Require(const CapturePacket& packet, std::size_t size) {
  if (packet.data.size() >= size) return;
  throw CaptureError("has a frame " + std::to_string(packet.number) + " of " +
                     std::to_string(packet.data.size()) + " bytes, which must have " +
                     std::to_string(size));
}

void TakeSetup(UsbPacket& decoded, const CapturePacket& packet, std::size_t at) {
  decoded.setup.emplace();
  std::copy_n(packet.data.begin() + static_cast<std::ptrdiff_t>(at), kSetupSize,
              decoded.setup->begin());
}

// Documentation/usb/usbmon.rst of Linux. Numbers are those of the computer that captured.
std::optional<UsbPacket> DecodeUsbmon(const CapturePacket& packet, std::size_t header) {
  Require(packet, header);
  const NumberReader numbers(packet.data, packet.isBigEndian);
  if (packet.data[9] > static_cast<std::uint8_t>(TransferType::Bulk)) return std::nullopt;
  UsbPacket decoded;
  decoded.id = numbers.At(0, 8);
  decoded.address = {numbers.At16(12), packet.data[11]};
  decoded.type = static_cast<TransferType>(packet.data[9]);
  decoded.endpoint = packet.data[10];
  decoded.event = packet.data[8] == 'S' ? UsbPacket::Event::Begin : UsbPacket::Event::End;
  decoded.status = static_cast<std::int32_t>(numbers.At32(28));
  const bool hasSetup = decoded.type == TransferType::Control && packet.data[14] == 0;
  if (hasSetup && decoded.event == UsbPacket::Event::Begin) TakeSetup(decoded, packet, 40);
  decoded.dataAt = header;
  // A mark in place of the data says that there are none here.
  const bool isEmpty = packet.data[15] == '<' || packet.data[15] == '>';
  decoded.dataSize = isEmpty ? 0 : numbers.At32(32);
  return decoded;
}

// The status codes of Windows, as far as Linux has a number for them.
std::int32_t ErrnoOf(std::uint32_t status) {
  switch (status) {
    case 0:
      return kUrbOk;
    case 0xC0000004:  // USBD_STATUS_STALL_PID
      return kUrbStall;
    case 0xC0007000:  // USBD_STATUS_DEVICE_GONE
      return kUrbNoDevice;
    case 0xC0010000:  // USBD_STATUS_CANCELED
      return kUrbUnlinked;
    default:
      return kUrbProtocolError;
  }
}

UsbPacket::Event EventOf(std::uint8_t stage, bool isFromDevice) {
  constexpr std::uint8_t kSetupStage = 0, kDataStage = 1;
  if (stage == kSetupStage && !isFromDevice) return UsbPacket::Event::Begin;
  return stage == kDataStage ? UsbPacket::Event::MoreData : UsbPacket::Event::End;
}

// Numbers are little-endian whatever the file has.
std::optional<UsbPacket> DecodeUsbpcap(const CapturePacket& packet) {
  Require(packet, kUsbpcapHeader);
  const NumberReader numbers(packet.data);
  const std::size_t header = numbers.At16(0);
  const bool isFromDevice = (packet.data[16] & 1) != 0;
  if (packet.data[22] > static_cast<std::uint8_t>(TransferType::Bulk)) return std::nullopt;
  UsbPacket decoded;
  decoded.type = static_cast<TransferType>(packet.data[22]);
  const bool isControl = decoded.type == TransferType::Control;
  Require(packet, std::max(header, isControl ? kUsbpcapControlHeader : kUsbpcapHeader));
  decoded.id = numbers.At(2, 8);
  decoded.address = {numbers.At16(17), numbers.At16(19)};
  decoded.endpoint = packet.data[21];
  decoded.event = isFromDevice ? UsbPacket::Event::End : UsbPacket::Event::Begin;
  if (isControl) decoded.event = EventOf(packet.data[27], isFromDevice);
  decoded.status = ErrnoOf(numbers.At32(10));
  decoded.dataAt = header;
  decoded.dataSize = numbers.At32(23);
  if (isControl && decoded.event == UsbPacket::Event::Begin) {
    Require(packet, header + kSetupSize);
    TakeSetup(decoded, packet, header);
    decoded.dataAt += kSetupSize;
    decoded.dataSize -= std::min(decoded.dataSize, kSetupSize);
  }
  return decoded;
}

}  // namespace

bool IsUsbLink(std::uint16_t linkType) {
  return linkType == kUsbmonLink || linkType == kUsbmonMmappedLink || linkType == kUsbpcapLink;
}

std::optional<UsbPacket> DecodeUsbPacket(const CapturePacket& packet) {
  switch (packet.linkType) {
    case kUsbmonLink:
      return DecodeUsbmon(packet, kUsbmonHeader);
    case kUsbmonMmappedLink:
      return DecodeUsbmon(packet, kMmappedHeader);
    case kUsbpcapLink:
      return DecodeUsbpcap(packet);
    default:
      return std::nullopt;
  }
}

}  // namespace virtualhub
