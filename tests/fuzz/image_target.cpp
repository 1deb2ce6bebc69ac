// Firmware images: loading, versions and ids, compared with where the fields stand.
#include <optional>

#include "QzHidAPI.h"
#include "firmware/fw_image.h"
#include "firmware/hub_fw_finder.h"
#include "fuzz/fuzz.h"
#include "virtualhub/hub/image.h"

using namespace qzhid;
using namespace qzhid::fuzz;

namespace {

std::optional<std::uint16_t> FieldAt(const Bytes& image, std::size_t offset) {
  if (image.size() < offset + 2) return std::nullopt;
  return virtualhub::BigEndian16(image, offset);
}

/// An image of the input's size with the rest of the input where the fields are.
Bytes MakeImage(Input input) {
  constexpr std::size_t kFields = 0x7EF9;
  Bytes image(input.Word() % 0x8400);
  const Bytes fields = input.Take(image.size() > kFields ? image.size() - kFields : 0);
  if (!fields.empty()) std::copy(fields.begin(), fields.end(), image.begin() + kFields);
  return image;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static MemoryFile file;
  const Bytes image = MakeImage(Input(data, size));
  file.Fill(image);
  FwBuffer loaded{1, 2, 3};
  const bool isLoaded = CHubFwFinder(file.path()).LoadFwbin2Buf(loaded);
  Require(isLoaded ? loaded == image : image.empty(), "an image is loaded as it is");

  std::uint32_t vid = 0x12345, pid = 0x12345;
  const bool hasIds = QZ_GetHidBinFileVIDPID(file.path().c_str(), &vid, &pid) == 1;
  const auto imageVid = FieldAt(image, 0x7F12), imagePid = FieldAt(image, 0x7F16);
  Require(hasIds == imagePid.has_value(), "ids are read when they are there");
  Require(hasIds ? vid == imageVid && pid == imagePid : vid == 0x12345 && pid == 0x12345,
          "ids are those of the image");
  std::uint16_t version = 0, alternate = 0;
  const auto chip = FieldAt(image, 0x7EFB);
  const auto inImage = chip ? FieldAt(image, virtualhub::VersionOffset(*chip)) : std::nullopt;
  Require(ReadImageVersion("", image, kImageVersion, version) ? version == inImage : !inImage,
          "the version is that of the image");
  Require(ReadImageVersion("", image, kAlternateVersion, alternate)
              ? alternate == FieldAt(image, 0x7EF9)
              : image.size() < 0x7EFB,
          "the alternate version is that of the image");
  return 0;
}
