#include "firmware/fw_image.h"

#include <algorithm>
#include <array>

#include "log/msg.h"

namespace qzhid {

namespace {

constexpr std::size_t kAlternateVersionOffset = 0x7EF9;
constexpr std::size_t kChipCodeOffset = 0x7EFB;
constexpr std::size_t kVidOffset = 0x7F12;
constexpr std::size_t kHspidOffset = 0x7F16;
constexpr std::size_t kReadChunk = 16 * 1024;

std::size_t VersionOffset(std::uint16_t chipCode) {
  switch (chipCode) {
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

bool ReadField(const char* tag, const FwBuffer& image, std::size_t offset, std::uint16_t& value) {
  if (image.size() < offset + 2) {
    CMsg::Instance().Log(3, tag, "Fw image is too short,size:%d\n", static_cast<int>(image.size()));
    return false;
  }
  value = static_cast<std::uint16_t>(image[offset] * 256 + image[offset + 1]);
  return true;
}

}  // namespace

FwBuffer ReadWhole(std::istream& stream) {
  FwBuffer bytes;
  // A file tells its size here: growing would hold the image twice, and more than half of that
  // idle.
  if (const std::streamsize expected = stream.rdbuf()->in_avail(); expected > 0) {
    bytes.reserve(std::min(static_cast<std::size_t>(expected), kMaxImageSize + 1));
  }
  std::array<char, kReadChunk> chunk;
  // Only what is buffered is taken at once: an error behind it then costs none of it.
  while (bytes.size() <= kMaxImageSize && stream.peek() != std::istream::traits_type::eof()) {
    const std::streamsize buffered = std::max<std::streamsize>(stream.rdbuf()->in_avail(), 1);
    stream.read(chunk.data(), std::min<std::streamsize>(buffered, kReadChunk));
    bytes.insert(bytes.end(), chunk.data(), chunk.data() + stream.gcount());
  }
  return bytes;
}

bool IsTooLong(const char* tag, const FwBuffer& image) {
  if (image.size() <= kMaxImageSize) return false;
  CMsg::Instance().Log(3, tag, "Fw image is too long,limit:%d\n", static_cast<int>(kMaxImageSize));
  return true;
}

bool ReadImageVersion(const char* tag, const FwBuffer& image, std::uint8_t mode,
                      std::uint16_t& version) {
  if (mode == kAlternateVersion) return ReadField(tag, image, kAlternateVersionOffset, version);
  std::uint16_t chipCode = 0;
  return ReadField(tag, image, kChipCodeOffset, chipCode) &&
         ReadField(tag, image, VersionOffset(chipCode), version);
}

bool ReadImageIds(const char* tag, const FwBuffer& image, FwImageIds& ids) {
  FwImageIds found;
  if (!ReadField(tag, image, kVidOffset, found.vid) ||
      !ReadField(tag, image, kHspidOffset, found.hspid)) {
    return false;
  }
  ids = found;
  return true;
}

}  // namespace qzhid
