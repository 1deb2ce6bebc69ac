// A firmware image file and what it says about itself.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "common/files.h"

namespace qzhid {

struct Image {
  std::string path;  ///< as the user named it
  std::uint16_t vid = 0;
  std::uint16_t pid = 0;
  std::uint16_t chip = 0;
  std::uint16_t version = 0;
  std::string sha256;
  tools::Bytes bytes;
};

/// Reads it. Throws Failure when the file cannot be read, is not a regular one, is too short or too
/// long to be an image, or is not the whole image.
Image ReadImage(const std::string& path);

nlohmann::ordered_json ToJson(const Image& image);

}  // namespace qzhid
