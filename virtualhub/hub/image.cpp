#include "virtualhub/hub/image.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "virtualhub/base/crc32.h"

namespace virtualhub {

namespace {

constexpr std::size_t kChipOffset = 0x7EFB;
constexpr std::size_t kVidOffset = 0x7F12;
constexpr std::size_t kPidOffset = 0x7F16;

constexpr std::size_t kSealOffset = 0x7F80;
constexpr std::array<std::uint8_t, 8> kSealMagic = {'V', 'H', 'U', 'B', 'S', 'E', 'A', 'L'};
constexpr std::size_t kSealLength = kSealOffset + kSealMagic.size();
constexpr std::size_t kSealChecksum = kSealLength + 4;
constexpr std::size_t kSealEnd = kSealChecksum + 4;

std::uint32_t SealChecksum(ByteView image) {
  return Crc32(image.subspan(kSealEnd), Crc32(image.first(kSealChecksum)));
}

void FillPseudoRandom(MutableBytes bytes, std::uint64_t seed) {
  for (std::uint8_t& byte : bytes) {
    seed = seed * 6364136223846793005u + 1442695040888963407u;
    byte = static_cast<std::uint8_t>(seed >> 56);
  }
}

}  // namespace

std::size_t VersionOffset(std::uint16_t chip) {
  switch (chip) {
    case 0x4A17:
      return 0x7F52;
    case 0x4A26:
      return 0x7F6E;
    case 0x93E5:
      return 0x7FA6;
    default:
      return 0x7F5E;
  }
}

Bytes BuildImage(const ImageIdentity& identity, std::size_t size) {
  if (size < kIdentityEnd) throw std::invalid_argument("image is too small for its identity");
  Bytes image(size);
  FillPseudoRandom(image, static_cast<std::uint64_t>(identity.vid) << 48 |
                              static_cast<std::uint64_t>(identity.pid) << 32 |
                              static_cast<std::uint64_t>(identity.chip) << 16 | identity.version);
  PutBigEndian16(image, kChipOffset, identity.chip);
  PutBigEndian16(image, kVidOffset, identity.vid);
  PutBigEndian16(image, kPidOffset, identity.pid);
  PutBigEndian16(image, VersionOffset(identity.chip), identity.version);
  std::copy(kSealMagic.begin(), kSealMagic.end(),
            image.begin() + static_cast<std::ptrdiff_t>(kSealOffset));
  PutLittleEndian32(image, kSealLength, static_cast<std::uint32_t>(size));
  PutLittleEndian32(image, kSealChecksum, SealChecksum(image));
  return image;
}

std::optional<ImageIdentity> ReadIdentity(ByteView contents) {
  if (contents.size() < kIdentityEnd) return std::nullopt;
  ImageIdentity identity;
  identity.chip = BigEndian16(contents, kChipOffset);
  identity.vid = BigEndian16(contents, kVidOffset);
  identity.pid = BigEndian16(contents, kPidOffset);
  identity.version = BigEndian16(contents, VersionOffset(identity.chip));
  return identity;
}

Seal CheckSeal(ByteView contents) {
  if (contents.size() < kSealEnd ||
      !std::equal(kSealMagic.begin(), kSealMagic.end(), contents.begin() + kSealOffset)) {
    return Seal::None;
  }
  const std::size_t length = LittleEndian32(contents, kSealLength);
  if (length < kIdentityEnd || length > contents.size()) return Seal::Broken;
  const bool intact =
      SealChecksum(contents.first(length)) == LittleEndian32(contents, kSealChecksum);
  return intact ? Seal::Intact : Seal::Broken;
}

}  // namespace virtualhub
