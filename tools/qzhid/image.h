// A firmware image file and what it says about itself.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "qzhid/host.h"

namespace qzhid {

struct Image {
  std::string path;
  std::uint32_t vid = 0;
  std::uint32_t pid = 0;
  std::uint16_t chip = 0;
  std::uint16_t version = 0;
  std::size_t size = 0;  ///< in bytes
  std::string sha256;
};

/// Reads it. Throws Failure when the file cannot be read, is not a regular one, or is too short or
/// too long to be an image.
Image ReadImage(Host& host, const std::string& path);

nlohmann::ordered_json ToJson(const Image& image);

}  // namespace qzhid
