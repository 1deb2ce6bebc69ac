// Firmware images: loading, versions and ids, compared with where the fields stand.
#include "firmware/fw_image.h"

#include <optional>

#include "firmware/hub_fw_finder.h"
#include "fuzz/machine.h"

using namespace qzhid;
using namespace qzhid::fuzz;

namespace {

constexpr std::size_t kFields = 0x7EF9, kFieldsEnd = 0x7FA8;

std::optional<std::uint16_t> FieldAt(const Bytes& image, std::size_t offset) {
  if (image.size() < offset + 2) return std::nullopt;
  return virtualhub::BigEndian16(image, offset);
}

std::optional<std::uint16_t> VersionIn(const Bytes& image) {
  const auto chip = FieldAt(image, 0x7EFB);
  return chip ? FieldAt(image, virtualhub::VersionOffset(*chip)) : std::nullopt;
}

/// An image of the input's size with the rest of the input where the fields are.
Bytes MakeImage(Input input) {
  Bytes image(input.Word() % 0x8400);
  const Bytes fields = input.Take(kFieldsEnd - kFields);
  for (std::size_t i = 0; i < fields.size() && kFields + i < image.size(); ++i) {
    image[kFields + i] = fields[i];
  }
  return image;
}

void CheckExports(const Bytes& image, const std::string& path) {
  static Machine& machine = *new Machine({.devices = {HubDevice()}});  // outlives all inputs
  if (machine.handles.empty()) machine.handles.push_back(QZ_OpenHid(List().at(0).dwInst));
  std::uint32_t vid = 0x12345, pid = 0x12345;
  const bool hasIds = QZ_GetHidBinFileVIDPID(path.c_str(), &vid, &pid) == 1;
  Require(hasIds == FieldAt(image, 0x7F16).has_value(), "ids are read when they are there");
  Require(vid == (hasIds ? *FieldAt(image, 0x7F12) : 0x12345u), "the VID is that of the image");
  Require(pid == (hasIds ? *FieldAt(image, 0x7F16) : 0x12345u), "the PID is that of the image");
  std::uint16_t version = 0x7777;
  const bool hasVersion = QZ_ReadBinVersion(machine.handles[0], path.c_str(), &version) == 1;
  Require(hasVersion == VersionIn(image).has_value(), "the version is read when it is there");
  Require(version == VersionIn(image).value_or(0x7777), "the version is that of the image");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static MemoryFile file;
  const Bytes image = MakeImage(Input(data, size));
  file.Fill(image);
  CheckExports(image, file.path());
  FwBuffer loaded{1, 2, 3};
  const bool isLoaded = CHubFwFinder(file.path()).LoadFwbin2Buf(loaded);
  Require(isLoaded ? loaded == image : image.empty(), "an image is loaded as it is");
  std::uint16_t alternate = 0;
  if (ReadImageVersion("fuzz", image, kAlternateVersion, alternate)) {
    Require(alternate == FieldAt(image, 0x7EF9), "the alternate version is that of the image");
  }
  return 0;
}
