// One packet of a USB capture, as usbmon (and QEMU) or USBPcap wrote it.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>

#include "virtualhub/base/bytes.h"
#include "virtualhub/capture/capture_file.h"

namespace virtualhub {

// Link types of captures (https://www.tcpdump.org/linktypes.html).
inline constexpr std::uint16_t kUsbmonLink = 189;         ///< LINKTYPE_USB_LINUX
inline constexpr std::uint16_t kUsbmonMmappedLink = 220;  ///< LINKTYPE_USB_LINUX_MMAPPED
inline constexpr std::uint16_t kUsbpcapLink = 249;        ///< LINKTYPE_USBPCAP

/// Where a device is during one stay on the bus.
struct UsbAddress {
  std::uint16_t bus = 0, device = 0;
  auto operator<=>(const UsbAddress&) const = default;  // NOLINT(modernize-use-nullptr)
};

enum class TransferType : std::uint8_t { Isochronous = 0, Interrupt = 1, Control = 2, Bulk = 3 };

struct UsbPacket {
  /// What the packet says of its transfer. USBPcap can have a packet for each stage of a control
  /// transfer.
  enum class Event { Begin, MoreData, End };

  std::uint64_t id = 0;  ///< of the transfer; can be used again after its end
  UsbAddress address;
  TransferType type = TransferType::Control;
  std::uint8_t endpoint = 0;  ///< its direction in bit 7
  Event event = Event::Begin;
  std::int32_t status = 0;  ///< End: as UrbStatus
  std::optional<std::array<std::uint8_t, 8>> setup;
  std::size_t dataAt = 0;    ///< where the data begin in the packet
  std::size_t dataSize = 0;  ///< on the wire; the packet may have less
};

/// None for a packet that is not of a transfer. Throws CaptureError for one that is too short.
std::optional<UsbPacket> DecodeUsbPacket(const CapturePacket& packet);

/// Whether packets of that link type are those of USB.
bool IsUsbLink(std::uint16_t linkType);

}  // namespace virtualhub
