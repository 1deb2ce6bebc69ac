#include "virtualhub/base/atomic_file.h"

#include <fstream>
#include <random>
#include <system_error>

namespace virtualhub {

std::string WriteFileAtomically(const std::filesystem::path& path, ByteView bytes) {
  std::filesystem::path temporary = path;
  temporary += ".tmp" + std::to_string(std::random_device()());
  std::error_code error;
  std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
  if (!file) return "cannot create " + temporary.string();
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  file.close();
  const bool written = file.good();
  if (written) std::filesystem::rename(temporary, path, error);
  if (written && !error) return {};
  std::error_code ignored;
  std::filesystem::remove(temporary, ignored);
  return written ? error.message() : "cannot write " + temporary.string();
}

}  // namespace virtualhub
