#include "qzhid/image.h"

#include <filesystem>

#include "common/files.h"
#include "qzhid/hubs.h"
#include "qzhid/sha256.h"

namespace qzhid {

namespace {

// Places of big-endian 16-bit fields. The library reports the version of an image only with a hub
// at hand, and never the chip code that selects the version's place.
constexpr std::size_t kChipCode = 0x7EFB;
constexpr std::size_t kShortestImage = 0x7FA8;
constexpr std::size_t kLongestImage = 0x1000000;  // larger than any flash

std::size_t VersionPlace(std::uint16_t chip) {
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

[[noreturn]] void Reject(const std::string& path, const std::string& why) {
  throw Failure(Exit::ImageRefused, "image " + path + " " + why, "",
                "give the complete image file");
}

void CheckSize(const std::string& path, std::uintmax_t size) {
  const std::string bytes = std::to_string(size) + " bytes of at ";
  if (size < kShortestImage) {
    Reject(path, "is too short: " + bytes + "least " + std::to_string(kShortestImage));
  }
  if (size > kLongestImage) {
    Reject(path, "is too long: " + bytes + "most " + std::to_string(kLongestImage));
  }
}

// Only regular files are opened: anything else may have no end.
tools::Bytes ReadContents(const std::string& path) {
  std::error_code error;
  const std::filesystem::file_status file = std::filesystem::status(path, error);
  if (!std::filesystem::exists(file)) Reject(path, "cannot be read");
  if (!std::filesystem::is_regular_file(file)) Reject(path, "is not a regular file");
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  if (error) Reject(path, "cannot be read");
  CheckSize(path, size);
  try {
    tools::Bytes bytes = tools::ReadFile(path, kLongestImage);
    CheckSize(path, bytes.size());
    return bytes;
  } catch (const tools::FileError& failure) {
    Reject(path, failure.what());
  }
}

}  // namespace

Image ReadImage(Host& host, const std::string& path) {
  const tools::Bytes bytes = ReadContents(path);
  Image image;
  image.path = path;
  if (host.Api().GetHidBinFileVIDPID(path.c_str(), &image.vid, &image.pid) == 0) {
    Reject(path, "is not accepted by the library");
  }
  image.chip = virtualhub::BigEndian16(bytes, kChipCode);
  image.version = virtualhub::BigEndian16(bytes, VersionPlace(image.chip));
  image.size = bytes.size();
  image.sha256 = Sha256(bytes);
  return image;
}

nlohmann::ordered_json ToJson(const Image& image) {
  return {{"file", image.path},
          {"vid", IdText(image.vid)},
          {"pid", IdText(image.pid)},
          {"chip", IdText(image.chip)},
          {"version", VersionText(image.version)},
          {"size", image.size},
          {"sha256", image.sha256}};
}

}  // namespace qzhid
