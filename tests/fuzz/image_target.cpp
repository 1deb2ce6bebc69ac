// Firmware images: loading, versions and ids, compared with the fields of the image.
#include <optional>

#include "QzHidAPI.h"
#include "firmware/fw_image.h"
#include "firmware/hub_fw_finder.h"
#include "fuzz/fuzz.h"
#include "virtualhub/hub/image.h"

using namespace qzhid;
using namespace qzhid::fuzz;

using Field = std::optional<std::uint32_t>;

static Field FieldAt(const Bytes& image, std::size_t offset) {
  if (image.size() < offset + 2) return std::nullopt;
  return virtualhub::BigEndian16(image, offset);
}

static Field Version(const Bytes& image, std::uint8_t mode) {
  std::uint16_t version = 0;
  return ReadImageVersion("", image, mode, version) ? Field(version) : Field();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // An image of the input's size with the rest of the input where the fields are.
  constexpr std::size_t kFields = 0x7EF9;
  Input input(data, size);
  Bytes image(input.Word() % 0x8400);
  const Bytes fields = input.Take(image.size() > kFields ? image.size() - kFields : 0);
  if (!fields.empty()) std::copy(fields.begin(), fields.end(), image.begin() + kFields);
  static MemoryFile file;
  file.Fill(image);
  FwBuffer loaded{1, 2, 3};
  const bool isLoaded = CHubFwFinder(file.path()).LoadFwbin2Buf(loaded);
  Require(isLoaded ? loaded == image : image.empty(), "an image is loaded as it is");
  std::uint32_t vid = 0x12345, pid = 0x12345;
  const bool hasIds = QZ_GetHidBinFileVIDPID(file.path().c_str(), &vid, &pid) == 1;
  Require(hasIds == FieldAt(image, 0x7F16).has_value(), "ids are read when they are there");
  Require(vid == (hasIds ? FieldAt(image, 0x7F12) : 0x12345), "the vendor id is the image's");
  Require(pid == (hasIds ? FieldAt(image, 0x7F16) : 0x12345), "the product id is the image's");
  const Field chip = FieldAt(image, 0x7EFB);
  const auto place = chip ? virtualhub::VersionOffset(static_cast<std::uint16_t>(*chip)) : size;
  Require(Version(image, kImageVersion) == (chip ? FieldAt(image, place) : chip), "the version");
  Require(Version(image, kAlternateVersion) == FieldAt(image, kFields), "the alternate version");
  return 0;
}
