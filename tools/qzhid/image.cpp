#include "qzhid/image.h"

#include "qzhid/bytes.h"
#include "qzhid/hubs.h"
#include "qzhid/sha256.h"

namespace qzhid {

namespace {

// Places of big-endian 16-bit fields. The library tells the version of an image only with a hub at
// hand, and never the chip code that selects the version's place.
constexpr std::size_t kChipCode = 0x7EFB;
constexpr std::size_t kShortestImage = 0x7FA8;

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

std::uint16_t Field(const Bytes& bytes, std::size_t place) {
  return static_cast<std::uint16_t>(bytes[place] << 8 | bytes[place + 1]);
}

[[noreturn]] void Refuse(const std::string& path, const std::string& why) {
  throw Failure(Exit::ImageRefused, "image " + path + " " + why, "",
                "name a whole firmware image file");
}

}  // namespace

Image ReadImage(Host& host, const std::string& path) {
  Bytes bytes;
  if (!ReadFile(path, bytes)) Refuse(path, "cannot be read");
  if (bytes.size() < kShortestImage) {
    Refuse(path, "is too short: " + std::to_string(bytes.size()) + " bytes of at least " +
                     std::to_string(kShortestImage));
  }
  Image image;
  image.path = path;
  if (host.Api().GetHidBinFileVIDPID(path.c_str(), &image.vid, &image.pid) == 0) {
    Refuse(path, "is not accepted by the library");
  }
  image.chip = Field(bytes, kChipCode);
  image.version = Field(bytes, VersionPlace(image.chip));
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
