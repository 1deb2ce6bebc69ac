// Firmware images and the identity fields in them.
#pragma once

#include <cstdint>
#include <vector>

namespace qzhid {

/// A flat image, byte 0 for flash address 0.
using FwBuffer = std::vector<std::uint8_t>;

/// Which version of an image to read.
inline constexpr std::uint8_t kImageVersion = 0;      ///< at the place that the chip code names
inline constexpr std::uint8_t kAlternateVersion = 1;  ///< the alternate version

/// The hub's ids in an image.
struct FwImageIds {
  std::uint16_t vid = 0;
  std::uint16_t hspid = 0;
};

/// Read big-endian fields. When the image is too short for a field, that is logged under `tag`,
/// the result is false and the output unchanged.
bool ReadImageVersion(const char* tag, const FwBuffer& image, std::uint8_t mode,
                      std::uint16_t& version);
bool ReadImageIds(const char* tag, const FwBuffer& image, FwImageIds& ids);

}  // namespace qzhid
