// Files that a user names.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

#include "virtualhub/base/files.h"

namespace tools {

using virtualhub::Bytes;
using virtualhub::ByteView;
using virtualhub::FileError;

/// Throws FileError when standard input could not be read, which std::cin takes for its end.
void CheckStandardInput();

/// The contents of a file, or of standard input for "-". Throws FileError when it cannot be read or
/// has more than `most` bytes.
Bytes ReadFile(const std::string& path, std::size_t most);

/// The end of a file; all of it when it is not long.
struct FileEnd {
  std::uintmax_t start = 0;  ///< in the file
  std::string text{};
};

/// The last bytes of a file, at most `most`. Throws FileError.
FileEnd ReadFileEnd(const std::filesystem::path& path, std::size_t most);

/// Replaces a file as a whole, also one that a link leads to, and writes to what is not a file,
/// such as a device or a pipe. Throws FileError; then the old file stays.
void WriteFile(const std::string& path, ByteView bytes);

}  // namespace tools
