// Files that are read and written as a whole.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "virtualhub/base/bytes.h"

namespace virtualhub {

/// Why a file could not be read or written, without its name.
class FileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A file to read. Throws FileError when it cannot be opened, or is a folder.
std::ifstream OpenFile(const std::filesystem::path& path);

/// What is left of a stream. Throws FileError when it cannot be read or has more than `most` bytes,
/// as files of devices have that never end.
Bytes ReadWholeStream(std::istream& stream, std::size_t most);

/// The contents of a file, by the same rules.
Bytes ReadWholeFile(const std::filesystem::path& path, std::size_t most);

/// At most `size` bytes of a file from `offset` on; fewer when it ends before. Throws FileError.
Bytes ReadFilePart(const std::filesystem::path& path, std::uintmax_t offset, std::size_t size);

/// Writes to the file, device or pipe of that name, or makes a file. Throws FileError.
void WriteFile(const std::filesystem::path& path, ByteView bytes);

/// Makes a file of that name, or of the first such as "name-2.txt" and "name-3.txt" that no file
/// has, also when several processes do so at the same time. Returns its path. Throws FileError.
std::filesystem::path MakeNewFile(const std::filesystem::path& path, ByteView bytes);

/// Replaces a file as a whole: the bytes go to a new file that is then renamed, so that the path
/// never names a part of them. Throws FileError; then the old file stays as it was.
void ReplaceFile(const std::filesystem::path& path, ByteView bytes);

}  // namespace virtualhub
