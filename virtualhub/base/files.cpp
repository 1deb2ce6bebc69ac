#include "virtualhub/base/files.h"

#include <algorithm>
#include <fstream>
#include <random>
#include <string>
#include <system_error>

namespace virtualhub {

namespace {

// A file that is removed unless it was given its final name.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::filesystem::path& path) : path_(path) {
    path_ += ".tmp" + std::to_string(std::random_device()());
  }
  ~TemporaryFile() {
    std::error_code ignored;
    if (isLeft_) std::filesystem::remove(path_, ignored);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  void Write(ByteView bytes) {
    std::ofstream file(path_, std::ios::binary | std::ios::trunc);
    if (!file) throw FileError("cannot be created");
    isLeft_ = true;
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) throw FileError("cannot be written");
  }
  void Rename(const std::filesystem::path& path) {
    std::error_code error;
    std::filesystem::rename(path_, path, error);
    if (error) throw FileError("cannot be replaced: " + error.message());
    isLeft_ = false;
  }

 private:
  std::filesystem::path path_;
  bool isLeft_ = false;
};

}  // namespace

Bytes ReadWholeStream(std::istream& stream, std::size_t most) {
  constexpr std::size_t kChunk = 64 * 1024;
  Bytes bytes;
  while (stream && bytes.size() <= most) {
    const std::size_t held = bytes.size();
    bytes.resize(held + std::min(kChunk, most + 1 - held));
    stream.read(reinterpret_cast<char*>(bytes.data() + held),
                static_cast<std::streamsize>(bytes.size() - held));
    bytes.resize(held + static_cast<std::size_t>(stream.gcount()));
  }
  if (stream.bad()) throw FileError("cannot be read");
  if (bytes.size() > most) throw FileError("has more than " + std::to_string(most) + " bytes");
  return bytes;
}

Bytes ReadWholeFile(const std::filesystem::path& path, std::size_t most) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) throw FileError("is a folder");
  std::ifstream file(path, std::ios::binary);
  if (!file) throw FileError("cannot be opened");
  return ReadWholeStream(file, most);
}

void WriteFileAtomically(const std::filesystem::path& path, ByteView bytes) {
  TemporaryFile temporary(path);
  temporary.Write(bytes);
  temporary.Rename(path);
}

}  // namespace virtualhub
