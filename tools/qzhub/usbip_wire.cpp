#include "qzhub/usbip_wire.h"

#include <algorithm>
#include <initializer_list>

#include "virtualhub/bus/usb_descriptors.h"

namespace qzhub {

namespace {

constexpr std::uint32_t kVersion = 0x0111;
constexpr std::uint32_t kListRequest = 0x8005, kListReply = 0x0005;
constexpr std::uint32_t kImportRequest = 0x8003, kImportReply = 0x0003;
constexpr std::uint32_t kSubmit = 1, kUnlink = 2, kSubmitted = 3, kUnlinked = 4;
constexpr std::uint32_t kMostEndpoint = 15;
constexpr std::size_t kPathSize = 256;
constexpr std::uint32_t kHidClass = 3;

Bytes Words(std::initializer_list<std::uint32_t> words) {
  Bytes bytes;
  for (const std::uint32_t word : words) {
    for (int shift = 24; shift >= 0; shift -= 8) {
      bytes.push_back(static_cast<std::uint8_t>(word >> shift));
    }
  }
  return bytes;
}

void Append(Bytes& bytes, ByteView more) { bytes.insert(bytes.end(), more.begin(), more.end()); }

// A text in a field of that size; at least one zero ends it.
void AppendText(Bytes& bytes, const std::string& text, std::size_t size) {
  const std::size_t end = bytes.size() + size;
  bytes.insert(bytes.end(), text.begin(), text.end());
  bytes.resize(std::min(bytes.size(), end - 1));
  bytes.resize(end);
}

Bytes OpHeader(std::uint32_t code, OpStatus status) {
  return Words({kVersion << 16 | code, static_cast<std::uint32_t>(status)});
}

void AppendDevice(Bytes& bytes, const ExportPlace& place, const virtualhub::BusDevice& device) {
  AppendText(bytes, "/virtual/" + device.name, kPathSize);
  AppendText(bytes, place.Busid(), kBusidSize);
  const std::uint32_t vid = device.ids.vid, release = virtualhub::kDeviceRelease;
  // Class, subclass and protocol are 0, those of the interface; then configuration value, number
  // of configurations, number of interfaces.
  Append(bytes, Words({place.busNumber, place.deviceNumber, kHighSpeed, vid << 16 | device.ids.pid,
                       release << 16, virtualhub::kConfigurationValue << 16 | 0x0101}));
}

std::uint32_t U32(ByteView bytes, std::size_t offset) {
  return static_cast<std::uint32_t>(virtualhub::BigEndian16(bytes, offset)) << 16 |
         virtualhub::BigEndian16(bytes, offset + 2);
}

}  // namespace

std::string ExportPlace::Busid() const {
  return std::to_string(busNumber) + "-" + std::to_string(deviceNumber);
}

std::optional<OpRequest> DecodeOpHeader(ByteView header) {
  const std::uint32_t word = U32(header, 0);
  if (word == (kVersion << 16 | kListRequest)) return OpRequest::DeviceList;
  if (word == (kVersion << 16 | kImportRequest)) return OpRequest::Import;
  return std::nullopt;
}

std::string DecodeBusid(ByteView field) {
  return {field.begin(), std::find(field.begin(), field.end(), 0)};
}

Bytes EncodeListHead(std::uint32_t devices) {
  Bytes bytes = OpHeader(kListReply, OpStatus::Ok);
  Append(bytes, Words({devices}));
  return bytes;
}

Bytes EncodeListEntry(const ExportPlace& place, const virtualhub::BusDevice& device) {
  Bytes bytes;
  AppendDevice(bytes, place, device);
  Append(bytes, Words({kHidClass << 24}));
  return bytes;
}

Bytes EncodeImported(const ExportPlace& place, const virtualhub::BusDevice& device) {
  Bytes bytes = OpHeader(kImportReply, OpStatus::Ok);
  AppendDevice(bytes, place, device);
  return bytes;
}

Bytes EncodeImportRefused(OpStatus status) { return OpHeader(kImportReply, status); }

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
  Bytes bytes = Words({kSubmitted, sequence, 0, 0, 0, static_cast<std::uint32_t>(status),
                       static_cast<std::uint32_t>(actualLength), 0, 0, 0, 0, 0});
  Append(bytes, data);
  return bytes;
}

Bytes EncodeUnlinked(std::uint32_t sequence, std::int32_t status) {
  return Words(
      {kUnlinked, sequence, 0, 0, 0, static_cast<std::uint32_t>(status), 0, 0, 0, 0, 0, 0});
}

}  // namespace qzhub
