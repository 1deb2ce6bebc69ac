// Messages of usbredir, the USB redirection protocol, version 0.7: what its server, the "usb-host",
// sends and takes. All fields are little-endian.
#pragma once

#include <optional>

#include "virtualhub/base/bytes.h"
#include "virtualhub/bus/bus_device.h"

namespace qzhub::redirect {

using virtualhub::Bytes;
using virtualhub::ByteView;

enum class Type : std::uint32_t {
  Hello = 0,
  DeviceConnect = 1,
  DeviceDisconnect = 2,
  Reset = 3,
  InterfaceInfo = 4,
  EndpointInfo = 5,
  SetConfiguration = 6,
  GetConfiguration = 7,
  ConfigurationStatus = 8,
  SetAltSetting = 9,
  GetAltSetting = 10,
  AltSettingStatus = 11,
  StartIsochronous = 12,
  StopIsochronous = 13,
  IsochronousStatus = 14,
  StartInterrupt = 15,
  StopInterrupt = 16,
  InterruptStatus = 17,
  CancelPacket = 21,
  FilterReject = 22,
  Filter = 23,
  DisconnectAck = 24,
  ControlPacket = 100,
  BulkPacket = 101,
  IsochronousPacket = 102,
  InterruptPacket = 103,
};

enum class Status : std::uint8_t {
  Success = 0,
  Cancelled = 1,
  Invalid = 2,
  IoError = 3,
  Stall = 4
};

/// Of a status of the machine (virtualhub::UrbStatus).
Status StatusOf(std::int32_t urbStatus);

/// What an end is able to do. What changes a message holds only if both ends are able to do it.
enum Capability : std::uint32_t {
  kDeviceVersion = 1u << 1,
  kFilter = 1u << 2,
  kDisconnectAck = 1u << 3,
  kPacketSizes = 1u << 4,
  kWideIds = 1u << 5,
  kWideBulkLength = 1u << 6,
};
/// QEMU insists on the last three for a device at an xHCI controller.
inline constexpr std::uint32_t kOwnCapabilities =
    kDeviceVersion | kFilter | kDisconnectAck | kPacketSizes | kWideIds | kWideBulkLength;

/// A message as it arrives.
struct Message {
  Type type;
  std::uint64_t id;
  ByteView body;  ///< what follows the header
  // A data packet has these two in its body. An answer has the same head.
  ByteView head{}, data{};
};

/// What the two ends have in common: none until the other one has said hello.
using Shared = std::optional<std::uint32_t>;

/// How long the message is that these bytes begin with, 0 when that takes more of them. None when
/// it is invalid: of a type or length that a guest must not send now.
std::optional<std::size_t> MessageSize(ByteView bytes, const Shared& shared);

/// Decodes a whole message of that size. None when its data packet has not the length that it says,
/// or a direction that a guest must not send.
std::optional<Message> Decode(ByteView bytes, const Shared& shared);

/// The capabilities that the body of a hello names.
std::uint32_t DecodeCapabilities(ByteView hello);

Bytes Encode(Type type, std::uint64_t id, ByteView body, const Shared& shared);

/// The bodies of messages that describe a device.
Bytes DeviceConnect(const virtualhub::BusDevice& device, std::uint32_t shared);
Bytes InterfaceInfo(const virtualhub::BusDevice& device);
Bytes EndpointInfo(const virtualhub::BusDevice& device, std::uint32_t shared);
Bytes Hello();

// ---- Data packets -------------------------------------------------------------------------------

/// Bit 7 of an endpoint: device to host.
constexpr bool IsIn(std::uint8_t endpoint) { return (endpoint & 0x80) != 0; }

/// How many bytes the packet carries or asks for.
std::size_t LengthOf(const Message& packet);
std::uint8_t EndpointOf(const Message& packet);
/// The 8 bytes that begin a control transfer.
Bytes SetupOf(const Message& controlPacket);

/// The body of the answer to a packet with that head.
Bytes Answer(Type type, ByteView head, Status status, std::size_t length, ByteView data);

}  // namespace qzhub::redirect
