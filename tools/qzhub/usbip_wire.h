// Messages of USB/IP, protocol version 1.1.1, as the Linux kernel documents it ("USB/IP protocol").
// All fields are big-endian except the setup packet, which travels as it does on USB.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "virtualhub/base/bytes.h"
#include "virtualhub/bus/bus_device.h"

namespace qzhub {

using virtualhub::Bytes;
using virtualhub::ByteView;

// ---- Before a device is imported ----------------------------------------------------------------

inline constexpr std::size_t kOpHeaderSize = 8;
inline constexpr std::size_t kBusidSize = 32;  ///< a text and zeros; follows an import request

enum class OpRequest { DeviceList, Import };

/// Status of a reply.
enum class OpStatus : std::uint32_t { Ok = 0, DeviceBusy = 2, NoDevice = 4 };

/// The request that a header announces; none for another version or code. The status field has no
/// meaning in a request.
std::optional<OpRequest> DecodeOpHeader(ByteView header);

/// The text in an import request's bus id field, up to the first zero if there is one.
std::string DecodeBusid(ByteView field);

/// A device's place on the exporting side.
struct ExportPlace {
  std::uint32_t busNumber, deviceNumber;

  std::string Busid() const;  ///< such as "1-2"
  std::uint32_t Devid() const { return busNumber << 16 | deviceNumber; }
};

inline constexpr std::uint32_t kHighSpeed = 3;  ///< a device's speed, in messages and for vhci_hcd

/// The reply to a list request: its head for that many devices, and one entry.
Bytes EncodeListHead(std::uint32_t devices);
Bytes EncodeListEntry(const ExportPlace& place, const virtualhub::BusDevice& device);

Bytes EncodeImported(const ExportPlace& place, const virtualhub::BusDevice& device);
Bytes EncodeImportRefused(OpStatus status);

// ---- With an imported device --------------------------------------------------------------------

inline constexpr std::size_t kCommandSize = 48;
/// Longest data stage: that of a control transfer.
inline constexpr std::size_t kMostTransferBytes = 0xFFFF;

struct Command {
  enum class Kind { Submit, Unlink };

  Kind kind;
  std::uint32_t sequence, devid;
  bool in;                 ///< Submit: device to host
  std::uint32_t endpoint;  ///< Submit
  std::uint32_t length;    ///< Submit: bytes of the transfer buffer
  Bytes setup;             ///< Submit: 8 bytes, of a control transfer
  std::uint32_t victim;    ///< Unlink: the sequence number to take back

  /// Bytes of data that follow the command.
  std::size_t payload() const { return kind == Kind::Submit && !in ? length : 0; }
};

/// Decodes kCommandSize bytes. None for an invalid command: of another kind, with a field out of
/// its range, with too long a transfer, or isochronous (no device here has such endpoints).
std::optional<Command> DecodeCommand(ByteView bytes);

/// The answer to a submit command; `data` is empty for an OUT transfer.
Bytes EncodeSubmitted(std::uint32_t sequence, std::int32_t status, std::size_t actualLength,
                      ByteView data);
Bytes EncodeUnlinked(std::uint32_t sequence, std::int32_t status);

}  // namespace qzhub
