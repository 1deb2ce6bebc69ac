// The file: 8 bytes magic, the flash as the hub saves it, CRC-32 of both (little-endian).
#include "virtualhub/scenario/state_file.h"

#include <algorithm>
#include <string_view>

#include "virtualhub/base/crc32.h"

namespace virtualhub {

namespace {

constexpr std::string_view kMagic = "VHFLASH1";
constexpr std::size_t kChecksumSize = 4;
constexpr std::size_t kLongestState = 0x2001000;  // bytes; of two banks of the largest size

bool IsIntact(ByteView file) {
  if (file.size() < kMagic.size() + kChecksumSize) return false;
  const std::size_t checksum = file.size() - kChecksumSize;
  return std::equal(kMagic.begin(), kMagic.end(), file.begin()) &&
         Crc32(file.first(checksum)) == LittleEndian32(file, checksum);
}

}  // namespace

std::filesystem::path StateFilePath(const std::filesystem::path& folder, const std::string& name) {
  return folder / (name + ".flash");
}

void LoadStateFile(const std::filesystem::path& file, Hub& hub) {
  std::error_code error;
  if (!std::filesystem::exists(file, error)) return;
  const Bytes bytes = ReadWholeFile(file, kLongestState);
  if (!IsIntact(bytes)) throw FileError("is damaged");
  const ByteView flash =
      ByteView(bytes).subspan(kMagic.size(), bytes.size() - kMagic.size() - kChecksumSize);
  if (!hub.LoadFlash(flash)) {
    throw FileError("belongs to a hub with another flash size");
  }
}

void SaveStateFile(const std::filesystem::path& file, const Hub& hub) {
  std::error_code error;
  std::filesystem::create_directories(file.parent_path(), error);
  if (error) throw FileError("is in a folder that cannot be created: " + error.message());
  Bytes bytes(kMagic.begin(), kMagic.end());
  const Bytes flash = hub.SaveFlash();
  bytes.insert(bytes.end(), flash.begin(), flash.end());
  bytes.resize(bytes.size() + kChecksumSize);
  const std::size_t checksum = bytes.size() - kChecksumSize;
  PutLittleEndian32(bytes, checksum, Crc32(ByteView(bytes).first(checksum)));
  ReplaceFile(file, bytes);
}

}  // namespace virtualhub
