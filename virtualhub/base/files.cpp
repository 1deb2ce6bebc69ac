#include "virtualhub/base/files.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <string>
#include <system_error>

namespace virtualhub {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void Fail(const char* what, const std::error_code& reason) {
  throw FileError(reason ? what + (": " + reason.message()) : what);
}

// What the last call of the standard library failed with.
std::error_code LastError() { return {errno, std::generic_category()}; }

// A new folder for one file beside the place where that file will be. Nobody else can have put
// anything into it, such as a link, and it is removed at the end.
class TemporaryFolder {
 public:
  explicit TemporaryFolder(const fs::path& beside) {
    constexpr int kMostNames = 1000;
    std::error_code error;
    for (int number = 0; number < kMostNames && !error; ++number) {
      path_ = beside;
      path_ += ".tmp" + std::to_string(number);
      file_ = path_ / "file";
      if (fs::create_directory(path_, error)) return;
    }
    Fail("cannot be created", error);
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    fs::remove(file_, ignored);
    fs::remove(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const fs::path& File() const { return file_; }

 private:
  fs::path path_, file_;
};

}  // namespace

std::ifstream OpenFile(const fs::path& path) {
  std::error_code error;
  if (fs::is_directory(path, error)) throw FileError("is a folder");
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file) Fail("cannot be opened", LastError());
  return file;
}

Bytes ReadWholeStream(std::istream& stream, std::size_t most) {
  constexpr std::size_t kChunk = 64 * 1024;
  Bytes bytes;
  errno = 0;
  while (stream && bytes.size() <= most) {
    const std::size_t held = bytes.size();
    bytes.resize(held + std::min(kChunk, most + 1 - held));
    stream.read(reinterpret_cast<char*>(bytes.data() + held),
                static_cast<std::streamsize>(bytes.size() - held));
    bytes.resize(held + static_cast<std::size_t>(stream.gcount()));
  }
  if (stream.bad()) Fail("cannot be read", LastError());
  if (bytes.size() > most) throw FileError("has more than " + std::to_string(most) + " bytes");
  return bytes;
}

Bytes ReadWholeFile(const std::filesystem::path& path, std::size_t most) {
  std::ifstream file = OpenFile(path);
  return ReadWholeStream(file, most);
}

Bytes ReadFilePart(const fs::path& path, std::uintmax_t offset, std::size_t size) {
  std::ifstream file = OpenFile(path);
  Bytes bytes(size);
  errno = 0;
  file.seekg(static_cast<std::streamoff>(offset));
  file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(size));
  if (file.bad()) Fail("cannot be read", LastError());
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  return bytes;
}

void WriteFile(const fs::path& path, ByteView bytes) {
  errno = 0;
  std::ofstream file(path, std::ios::binary);
  if (!file) Fail("cannot be created", LastError());
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file) Fail("cannot be written", LastError());
}

fs::path MakeNewFile(const fs::path& path, ByteView bytes) {
  const TemporaryFolder folder(path);
  WriteFile(folder.File(), bytes);
  fs::path made = path;
  std::error_code error;
  for (int number = 2; !fs::copy_file(folder.File(), made, error); ++number) {
    if (error != std::errc::file_exists) Fail("cannot be created", error);
    made.replace_filename(path.stem());
    made += "-" + std::to_string(number);
    made += path.extension();
  }
  return made;
}

void ReplaceFile(const fs::path& path, ByteView bytes) {
  const TemporaryFolder folder(path);
  WriteFile(folder.File(), bytes);
  std::error_code error;
  fs::rename(folder.File(), path, error);
  if (error) Fail("cannot be replaced", error);
}

}  // namespace virtualhub
