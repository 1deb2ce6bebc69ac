#include "firmware/fw_image.h"

#include "log/msg.h"

namespace qzhid {

namespace {

constexpr std::size_t kAlternateVersionOffset = 0x7EF9;
constexpr std::size_t kChipCodeOffset = 0x7EFB;
constexpr std::size_t kVidOffset = 0x7F12;
constexpr std::size_t kHspidOffset = 0x7F16;

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
