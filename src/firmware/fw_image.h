// Firmware images and the identity fields in them.
#pragma once

#include <cstdint>
#include <vector>

namespace qzhid {

/// A flat image, byte 0 for flash address 0.
using FwBuffer = std::vector<std::uint8_t>;

/// Which of an image's versions is asked for.
inline constexpr std::uint8_t kImageVersion = 0;      ///< at the place that the chip code names
inline constexpr std::uint8_t kAlternateVersion = 1;  ///< the alternate version

/// The hub's ids in an image.
struct FwImageIds {
  std::uint16_t vid = 0;
  std::uint16_t hspid = 0;
};

/// Read big-endian fields. An image that is too short for a field that has to be read is logged
/// under `tag`; the result is then false and the output untouched.
bool ReadImageVersion(const char* tag, const FwBuffer& image, std::uint8_t mode,
                      std::uint16_t& version);
bool ReadImageIds(const char* tag, const FwBuffer& image, FwImageIds& ids);

}  // namespace qzhid
