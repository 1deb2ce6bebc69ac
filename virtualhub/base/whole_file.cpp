#include "virtualhub/base/whole_file.h"

#include <algorithm>
#include <fstream>

namespace virtualhub {

std::optional<Bytes> ReadWholeFile(const std::filesystem::path& path, std::size_t most) {
  constexpr std::size_t kChunk = 64 * 1024;
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  Bytes bytes;
  while (file && bytes.size() <= most) {
    const std::size_t held = bytes.size();
    bytes.resize(held + std::min(kChunk, most + 1 - held));
    file.read(reinterpret_cast<char*>(bytes.data() + held),
              static_cast<std::streamsize>(bytes.size() - held));
    bytes.resize(held + static_cast<std::size_t>(file.gcount()));
  }
  if (file.bad() || bytes.size() > most) return std::nullopt;
  return bytes;
}

}  // namespace virtualhub
