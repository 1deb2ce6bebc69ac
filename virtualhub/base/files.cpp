#include "virtualhub/base/files.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <random>
#include <string>
#include <system_error>

namespace virtualhub {

namespace {

namespace fs = std::filesystem;

// What the last call of the standard library failed with.
[[noreturn]] void Fail(const std::string& what) {
  throw FileError(errno == 0 ? what : what + ": " + std::generic_category().message(errno));
}

// A new folder for one file beside the place where that file will be. Nobody else can have put
// anything into it, such as a link, and it is removed at the end.
class TemporaryFolder {
 public:
  explicit TemporaryFolder(const fs::path& beside) : path_(beside) {
    path_ += ".tmp" + std::to_string(std::random_device()());
    std::error_code error;
    if (fs::create_directory(path_, error)) return;
    throw FileError("cannot be created" + (error ? ": " + error.message() : ""));
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    fs::remove(File(), ignored);
    fs::remove(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  fs::path File() const { return path_ / "file"; }

 private:
  fs::path path_;
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
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file) Fail("cannot be opened");
  return ReadWholeStream(file, most);
}

void WriteFile(const fs::path& path, ByteView bytes) {
  errno = 0;
  std::ofstream file(path, std::ios::binary);
  if (!file) Fail("cannot be created");
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file) Fail("cannot be written");
}

void ReplaceFile(const fs::path& path, ByteView bytes) {
  const TemporaryFolder folder(path);
  WriteFile(folder.File(), bytes);
  std::error_code error;
  fs::rename(folder.File(), path, error);
  if (error) throw FileError("cannot be replaced: " + error.message());
}

}  // namespace virtualhub
