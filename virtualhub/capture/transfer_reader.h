// The USB transfers of a capture, each made of its packets.
#pragma once

#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "virtualhub/capture/usb_packet.h"

namespace virtualhub {

/// One transfer. Of types other than control and interrupt the data are not kept.
struct UsbTransfer {
  std::uint64_t frame = 0;     ///< of its beginning
  std::uint64_t endFrame = 0;  ///< 0 when the capture ends before
  std::uint64_t beginUs = 0, endUs = 0;
  UsbAddress address;
  TransferType type = TransferType::Control;
  std::uint8_t endpoint = 0;
  std::array<std::uint8_t, 8> setup{};  ///< control transfers
  Bytes data;                           ///< that were sent, or read
  std::uint64_t dataFrame = 0;          ///< which has the data
  std::size_t dataAt = 0;               ///< where they begin in that frame
  bool isCut = false;                   ///< there were more data, which were not captured
  std::int32_t status = 0;              ///< as UrbStatus

  bool IsControl() const { return type == TransferType::Control; }
  bool IsIn() const { return ((IsControl() ? setup[0] : endpoint) & 0x80) != 0; }
  /// Of a control transfer: bmRequestType x 256 + bRequest.
  std::uint16_t Request() const { return IsControl() ? BigEndian16(setup, 0) : std::uint16_t{0}; }
  std::uint16_t Value() const { return LittleEndian16(setup, 2); }
};

class TransferReader {
 public:
  /// As CaptureFile.
  explicit TransferReader(std::istream& stream, ByteView beginning = {})
      : file_(stream, beginning) {}

  /// The next transfer, in the order in which they end; those that have not ended come last. False
  /// at the end. Throws CaptureError where the capture is damaged, and at its end when it has no
  /// USB packets.
  bool Next(UsbTransfer& transfer);

  const CaptureFile& file() const { return file_; }
  /// The link type of the last USB packet, which says where the capture is from.
  std::uint16_t linkType() const { return linkType_; }
  /// The time of the last packet.
  std::uint64_t lastUs() const { return packet_.timeUs; }

 private:
  using Key = std::tuple<UsbAddress, TransferType, std::uint64_t>;  // with the packets' id

  using Open = std::map<Key, UsbTransfer>;

  bool TakePacket(const UsbPacket& packet, UsbTransfer& ended);
  void Begin(const Key& key, const UsbPacket& packet);
  void AddData(UsbTransfer& transfer, const UsbPacket& packet);
  Open::iterator Oldest();
  void RequireUsb() const;

  CaptureFile file_;
  CapturePacket packet_;
  Open open_;
  std::uint16_t linkType_ = 0, otherLink_ = 0;
};

}  // namespace virtualhub
