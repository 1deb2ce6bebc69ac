#include "qzhub/redirect_wire.h"

#include <algorithm>
#include <string_view>

#include "virtualhub/bus/urb_status.h"
#include "virtualhub/bus/usb_descriptors.h"

namespace qzhub::redirect {

namespace {

using virtualhub::Append;
using virtualhub::AppendLittleEndian;
using virtualhub::LittleEndian16;
using virtualhub::LittleEndian32;

constexpr std::size_t kNarrowHeader = 12, kWideHeader = 16;
constexpr std::size_t kVersionSize = 64;
constexpr std::size_t kMostCapabilities = 64;  // numbers of 32 bits; one is in use today
constexpr std::size_t kMostFilter = 4096;
constexpr std::size_t kMostData = 0xFFFF;
constexpr std::size_t kWideBulkHead = 10, kHighLengthAt = 8;
constexpr std::size_t kEndpoints = 32;  // 0 to 15 OUT, then 0 to 15 IN
constexpr std::uint8_t kHighSpeed = 2;
constexpr std::uint8_t kControlType = 0, kNoType = 0xFF;
constexpr std::uint16_t kControlPacketSize = 64;

// What a guest may send, and how long the bodies are.
struct Form {
  Type type;
  std::size_t least, most;
};
constexpr Form kForms[] = {
    {Type::Hello, kVersionSize, kVersionSize + 4 * kMostCapabilities},
    {Type::Reset, 0, 0},
    {Type::SetConfiguration, 1, 1},
    {Type::GetConfiguration, 0, 0},
    {Type::SetAltSetting, 2, 2},
    {Type::GetAltSetting, 1, 1},
    {Type::StartIsochronous, 3, 3},
    {Type::StopIsochronous, 1, 1},
    {Type::StartInterrupt, 1, 1},
    {Type::StopInterrupt, 1, 1},
    {Type::CancelPacket, 0, 0},
    {Type::FilterReject, 0, 0},
    {Type::Filter, 1, kMostFilter},
    {Type::DisconnectAck, 0, 0},
    {Type::ControlPacket, 10, 10 + kMostData},
    {Type::BulkPacket, 8, 10 + kMostData},
    {Type::IsochronousPacket, 4, 4 + kMostData},
    {Type::InterruptPacket, 4, 4 + kMostData},
};

const Form* FormOf(Type type) {
  const auto found = std::find_if(std::begin(kForms), std::end(kForms),
                                  [&](const Form& form) { return form.type == type; });
  return found == std::end(kForms) ? nullptr : found;
}

bool IsDataPacket(Type type) { return type >= Type::ControlPacket; }

bool Has(const Shared& shared, Capability capability) {
  return (shared.value_or(0) & capability) != 0;
}

std::size_t HeadSize(Type type, const Shared& shared) {
  if (type == Type::BulkPacket && Has(shared, kWideBulkLength)) return kWideBulkHead;
  const Form* const form = FormOf(type);
  return form == nullptr ? 0 : form->least;
}

// Where status and length are in the head of a data packet.
std::size_t StatusAt(Type type) { return type == Type::ControlPacket ? 3 : 1; }
std::size_t LengthAt(Type type) { return type == Type::ControlPacket ? 8 : 2; }

std::size_t HeaderSize(const Shared& shared) {
  return Has(shared, kWideIds) ? kWideHeader : kNarrowHeader;
}

bool IsWhole(const Message& packet) {
  const bool isAsked = packet.type == Type::ControlPacket || packet.type == Type::BulkPacket;
  if (IsIn(EndpointOf(packet))) return isAsked && packet.data.empty();
  return packet.data.size() == LengthOf(packet);
}

// The descriptors of that type in the configuration.
template <typename Visit>
void ForEachDescriptor(const virtualhub::BusDevice& device, std::uint8_t type, const Visit& visit) {
  const Bytes all = virtualhub::ConfigurationDescriptor(device.reports,
                                                        virtualhub::DescriptorType::Configuration);
  for (std::size_t at = 0; at < all.size(); at += all[at]) {
    if (all[at + 1] == type) visit(ByteView(all).subspan(at, all[at]));
  }
}

}  // namespace

Status StatusOf(std::int32_t urbStatus) {
  switch (urbStatus) {
    case virtualhub::kUrbOk:
      return Status::Success;
    case virtualhub::kUrbStall:
      return Status::Stall;
    case virtualhub::kUrbUnlinked:
      return Status::Cancelled;
    default:
      return Status::IoError;
  }
}

std::optional<std::size_t> MessageSize(ByteView bytes, const Shared& shared) {
  if (bytes.size() < HeaderSize(shared)) return 0;
  const auto type = static_cast<Type>(LittleEndian32(bytes, 0));
  const std::size_t length = LittleEndian32(bytes, 4);
  const Form* const form = FormOf(type);
  const bool isExpected = form != nullptr && (type == Type::Hello) == !shared;
  if (!isExpected || length < form->least || length > form->most) return std::nullopt;
  return HeaderSize(shared) + length;
}

std::optional<Message> Decode(ByteView bytes, const Shared& shared) {
  const std::size_t header = HeaderSize(shared);
  Message message{static_cast<Type>(LittleEndian32(bytes, 0)), LittleEndian32(bytes, 8),
                  bytes.subspan(header)};
  if (header == kWideHeader) {
    message.id |= static_cast<std::uint64_t>(LittleEndian32(bytes, 12)) << 32;
  }
  if (!IsDataPacket(message.type)) return message;
  const std::size_t head = HeadSize(message.type, shared);
  if (message.body.size() < head) return std::nullopt;
  message.head = message.body.first(head);
  message.data = message.body.subspan(head);
  return IsWhole(message) ? std::optional(message) : std::nullopt;
}

std::uint32_t DecodeCapabilities(ByteView hello) {
  return hello.size() >= kVersionSize + 4 ? LittleEndian32(hello, kVersionSize) : 0;
}

Bytes Encode(Type type, std::uint64_t id, ByteView body, const Shared& shared) {
  Bytes message;
  AppendLittleEndian(message, static_cast<std::uint32_t>(type));
  AppendLittleEndian(message, static_cast<std::uint32_t>(body.size()));
  AppendLittleEndian(message, id);
  message.resize(HeaderSize(shared));
  Append(message, body);
  return message;
}

Bytes Hello() {
  constexpr std::string_view kName = "qzhub";
  Bytes body(kName.begin(), kName.end());
  body.resize(kVersionSize);
  AppendLittleEndian(body, kOwnCapabilities);
  return body;
}

Bytes DeviceConnect(const virtualhub::BusDevice& device, std::uint32_t shared) {
  Bytes body{kHighSpeed, 0, 0, 0};  // class, subclass and protocol are those of the interface
  AppendLittleEndian(body, device.ids.vid);
  AppendLittleEndian(body, device.ids.pid);
  if ((shared & kDeviceVersion) != 0) AppendLittleEndian(body, virtualhub::kDeviceRelease);
  return body;
}

Bytes InterfaceInfo(const virtualhub::BusDevice& device) {
  constexpr std::uint8_t kInterface = 4;
  Bytes body(4 + 4 * kEndpoints);
  ForEachDescriptor(device, kInterface, [&](ByteView descriptor) {
    const std::size_t index = body[0]++;
    body[4 + index] = descriptor[2];
    for (std::size_t i = 0; i < 3; ++i) body[4 + (i + 1) * kEndpoints + index] = descriptor[5 + i];
  });
  return body;
}

// Types, intervals, interfaces and packet sizes of all endpoints.
Bytes EndpointInfo(const virtualhub::BusDevice& device, std::uint32_t shared) {
  constexpr std::uint8_t kEndpoint = 5;
  Bytes body(5 * kEndpoints);
  std::fill_n(body.begin(), kEndpoints, kNoType);
  const auto set = [&](std::uint8_t address, std::uint8_t type, std::uint8_t interval,
                       std::uint16_t size) {
    const std::size_t index = (address & 0x0Fu) + (IsIn(address) ? kEndpoints / 2 : 0);
    body[index] = type;
    body[kEndpoints + index] = interval;
    body[3 * kEndpoints + 2 * index] = static_cast<std::uint8_t>(size);
    body[3 * kEndpoints + 2 * index + 1] = static_cast<std::uint8_t>(size >> 8);
  };
  set(0x00, kControlType, 0, kControlPacketSize);
  set(0x80, kControlType, 0, kControlPacketSize);
  ForEachDescriptor(device, kEndpoint, [&](ByteView descriptor) {
    set(descriptor[2], descriptor[3] & 3, descriptor[6], LittleEndian16(descriptor, 4));
  });
  if ((shared & kPacketSizes) == 0) body.resize(3 * kEndpoints);
  return body;
}

// ---- Data packets -------------------------------------------------------------------------------

std::size_t LengthOf(const Message& packet) {
  const std::size_t low = LittleEndian16(packet.head, LengthAt(packet.type));
  const bool isWide = packet.type == Type::BulkPacket && packet.head.size() == kWideBulkHead;
  return isWide ? LittleEndian16(packet.head, kHighLengthAt) * 0x10000u + low : low;
}

std::uint8_t EndpointOf(const Message& packet) { return packet.head[0]; }

Bytes SetupOf(const Message& controlPacket) {
  const ByteView head = controlPacket.head;
  Bytes setup{head[2], head[1]};
  Append(setup, head.subspan(4, 6));
  return setup;
}

Bytes Answer(Type type, ByteView head, Status status, std::size_t length, ByteView data) {
  Bytes body(head.begin(), head.end());
  body[StatusAt(type)] = static_cast<std::uint8_t>(status);
  body[LengthAt(type)] = static_cast<std::uint8_t>(length);
  body[LengthAt(type) + 1] = static_cast<std::uint8_t>(length >> 8);
  if (type == Type::BulkPacket) std::fill(body.begin() + kHighLengthAt, body.end(), 0);
  Append(body, data);
  return body;
}

}  // namespace qzhub::redirect
