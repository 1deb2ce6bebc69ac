#include "common/files.h"

#include <filesystem>
#include <iostream>

namespace tools {

Bytes ReadFile(const std::string& path, std::size_t most) {
  return path == "-" ? virtualhub::ReadWholeStream(std::cin, most)
                     : virtualhub::ReadWholeFile(path, most);
}

void WriteFile(const std::string& path, ByteView bytes) {
  std::error_code error;
  const std::filesystem::file_status old = std::filesystem::status(path, error);
  if (!std::filesystem::exists(old)) return virtualhub::ReplaceFile(path, bytes);
  if (!std::filesystem::is_regular_file(old)) return virtualhub::WriteFile(path, bytes);
  virtualhub::ReplaceFile(std::filesystem::canonical(path), bytes);
}

}  // namespace tools
