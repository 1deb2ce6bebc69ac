// Firmware images: identity fields at fixed offsets, and the seal that distinguishes a whole image
// from a partly written one.
#pragma once

#include <optional>

#include "virtualhub/base/bytes.h"

namespace virtualhub {

/// The first byte after the identity fields; the smallest size of a usable image.
inline constexpr std::size_t kIdentityEnd = 0x7FA8;

/// What an image says about itself. `version` is major.minor, two hexadecimal digits each.
struct ImageIdentity {
  std::uint16_t vid = 0x2E7C;
  std::uint16_t pid = 0x0818;
  std::uint16_t chip = 0x4A17;
  std::uint16_t version = 0x0102;

  bool operator==(const ImageIdentity&) const = default;
};

/// Where the two bytes of the version are for a chip code.
std::size_t VersionOffset(std::uint16_t chip);

/// An image of `size` bytes with that identity: everything else is pseudo-random, the same for the
/// same arguments and different for every identity. It has an intact seal. Throws
/// std::invalid_argument when `size` is below kIdentityEnd.
Bytes BuildImage(const ImageIdentity& identity, std::size_t size);

/// The identity fields; no value when the contents are too short for them.
std::optional<ImageIdentity> ReadIdentity(ByteView contents);

enum class Seal { None, Intact, Broken };

/// Looks for a seal in flash contents that start with an image. The seal (magic, image length,
/// CRC-32; 16 bytes at 0x7F80) covers the whole image except its own checksum.
Seal CheckSeal(ByteView contents);

}  // namespace virtualhub
