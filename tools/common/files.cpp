#include "common/files.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <system_error>

namespace tools {

void CheckStandardInput() {
  if (std::ferror(stdin) == 0) return;
  throw FileError("cannot be read: " + std::generic_category().message(errno));
}

Bytes ReadFile(const std::string& path, std::size_t most) {
  if (path != "-") return virtualhub::ReadWholeFile(path, most);
  Bytes bytes = virtualhub::ReadWholeStream(std::cin, most);
  CheckStandardInput();
  return bytes;
}

FileEnd ReadFileEnd(const std::filesystem::path& path, std::size_t most) {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  if (error) {
    virtualhub::OpenFile(path);
    throw FileError("is not a regular file");
  }
  const std::uintmax_t start = size - std::min<std::uintmax_t>(size, most);
  const Bytes bytes = virtualhub::ReadFilePart(path, start, static_cast<std::size_t>(size - start));
  return {start, std::string(bytes.begin(), bytes.end())};
}

void WriteFile(const std::string& path, ByteView bytes) {
  std::error_code error;
  const std::filesystem::file_status old = std::filesystem::status(path, error);
  if (!std::filesystem::exists(old)) return virtualhub::ReplaceFile(path, bytes);
  if (!std::filesystem::is_regular_file(old)) return virtualhub::WriteFile(path, bytes);
  virtualhub::ReplaceFile(std::filesystem::canonical(path), bytes);
}

}  // namespace tools
