#include "qzhub/usbip_wire.h"

#include <algorithm>

#include "virtualhub/usb_descriptors.h"

namespace qzhub {

namespace {

constexpr std::uint16_t kVersion = 0x0111;
constexpr std::uint16_t kListRequest = 0x8005, kListReply = 0x0005;
constexpr std::uint16_t kImportRequest = 0x8003, kImportReply = 0x0003;
constexpr std::uint32_t kSubmit = 1, kUnlink = 2, kSubmitted = 3, kUnlinked = 4;
constexpr std::uint32_t kMostEndpoint = 15;
constexpr std::size_t kPathSize = 256;
constexpr std::uint8_t kHidClass = 3;

class Writer {
 public:
  Writer& U8(std::uint8_t value) {
    bytes_.push_back(value);
    return *this;
  }
  Writer& U16(std::uint16_t value) {
    return U8(static_cast<std::uint8_t>(value >> 8)).U8(static_cast<std::uint8_t>(value));
  }
  Writer& U32(std::uint32_t value) {
    return U16(static_cast<std::uint16_t>(value >> 16)).U16(static_cast<std::uint16_t>(value));
  }
  // A text in a field of that size; at least one zero ends it.
  Writer& Text(const std::string& text, std::size_t size) {
    const std::size_t length = std::min(text.size(), size - 1);
    bytes_.insert(bytes_.end(), text.begin(), text.begin() + static_cast<std::ptrdiff_t>(length));
    return Zeros(size - length);
  }
  Writer& Zeros(std::size_t count) {
    bytes_.insert(bytes_.end(), count, 0);
    return *this;
  }
  Writer& Append(ByteView more) {
    bytes_.insert(bytes_.end(), more.begin(), more.end());
    return *this;
  }
  Writer& OpHeader(std::uint16_t code, OpStatus status) {
    return U16(kVersion).U16(code).U32(static_cast<std::uint32_t>(status));
  }
  Writer& Device(const ExportPlace& place, const virtualhub::BusDevice& device) {
    Text("/virtual/" + device.name, kPathSize).Text(place.Busid(), kBusidSize);
    U32(place.busNumber).U32(place.deviceNumber).U32(kHighSpeed);
    U16(device.ids.vid).U16(device.ids.pid).U16(virtualhub::kDeviceRelease);
    // Class, subclass and protocol are those of the interface; one configuration, one interface.
    return U8(0).U8(0).U8(0).U8(virtualhub::kConfigurationValue).U8(1).U8(1);
  }
  Bytes Take() { return std::move(bytes_); }

 private:
  Bytes bytes_;
};

std::uint32_t U32(ByteView bytes, std::size_t offset) {
  return static_cast<std::uint32_t>(virtualhub::BigEndian16(bytes, offset)) << 16 |
         virtualhub::BigEndian16(bytes, offset + 2);
}

}  // namespace

std::string ExportPlace::Busid() const {
  return std::to_string(busNumber) + "-" + std::to_string(deviceNumber);
}

std::optional<OpRequest> DecodeOpHeader(ByteView header) {
  if (virtualhub::BigEndian16(header, 0) != kVersion) return std::nullopt;
  switch (virtualhub::BigEndian16(header, 2)) {
    case kListRequest:
      return OpRequest::DeviceList;
    case kImportRequest:
      return OpRequest::Import;
    default:
      return std::nullopt;
  }
}

std::string DecodeBusid(ByteView field) {
  return {field.begin(), std::find(field.begin(), field.end(), 0)};
}

Bytes EncodeListHead(std::uint32_t devices) {
  return Writer().OpHeader(kListReply, OpStatus::Ok).U32(devices).Take();
}

Bytes EncodeListEntry(const ExportPlace& place, const virtualhub::BusDevice& device) {
  return Writer().Device(place, device).U8(kHidClass).Zeros(3).Take();
}

Bytes EncodeImported(const ExportPlace& place, const virtualhub::BusDevice& device) {
  return Writer().OpHeader(kImportReply, OpStatus::Ok).Device(place, device).Take();
}

Bytes EncodeImportRefused(OpStatus status) {
  return Writer().OpHeader(kImportReply, status).Take();
}

std::optional<Command> DecodeCommand(ByteView bytes) {
  Command command{};
  const std::uint32_t code = U32(bytes, 0), direction = U32(bytes, 12);
  command.sequence = U32(bytes, 4);
  command.devid = U32(bytes, 8);
  if (code == kUnlink) {
    command.kind = Command::Kind::Unlink;
    command.victim = U32(bytes, 20);
    return command;
  }
  command.kind = Command::Kind::Submit;
  command.in = direction == 1;
  command.endpoint = U32(bytes, 16);
  command.length = U32(bytes, 24);
  const std::uint32_t packets = U32(bytes, 32);
  const ByteView setup = bytes.subspan(40, 8);
  command.setup.assign(setup.begin(), setup.end());
  const bool valid = code == kSubmit && direction <= 1 && command.endpoint <= kMostEndpoint &&
                     command.length <= kMostTransferBytes && (packets == 0 || packets == ~0u);
  return valid ? std::optional(command) : std::nullopt;
}

Bytes EncodeSubmitted(std::uint32_t sequence, std::int32_t status, std::size_t actualLength,
                      ByteView data) {
  return Writer()
      .U32(kSubmitted)
      .U32(sequence)
      .Zeros(12)
      .U32(static_cast<std::uint32_t>(status))
      .U32(static_cast<std::uint32_t>(actualLength))
      .Zeros(20)
      .Append(data)
      .Take();
}

Bytes EncodeUnlinked(std::uint32_t sequence, std::int32_t status) {
  return Writer()
      .U32(kUnlinked)
      .U32(sequence)
      .Zeros(12)
      .U32(static_cast<std::uint32_t>(status))
      .Zeros(24)
      .Take();
}

}  // namespace qzhub
