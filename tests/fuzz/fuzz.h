// What the fuzz targets share. Each target defines LLVMFuzzerTestOneInput; the same input always
// does the same.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "virtualhub/bytes.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace qzhid::fuzz {

using virtualhub::Bytes;
using virtualhub::ByteView;

/// Ends the process when a promise is broken.
inline void Require(bool holds, const char* promise) {
  if (holds) return;
  std::fprintf(stderr, "broken promise: %s\n", promise);
  std::abort();
}

/// Takes values off an input, from the front. Behind its end everything is 0 or empty.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

  bool IsEmpty() const { return rest_.empty(); }
  std::uint8_t Byte() { return static_cast<std::uint8_t>(Number(1)); }
  std::uint16_t Word() { return static_cast<std::uint16_t>(Number(2)); }
  std::uint32_t Long() { return Number(4); }
  bool Flag() { return (Byte() & 1) != 0; }
  std::uint32_t Below(std::uint32_t count) { return Byte() % count; }
  template <typename T, std::size_t N>
  T Choice(const T (&choices)[N]) {
    return choices[Below(N)];
  }
  Bytes Take(std::size_t most) {
    const ByteView taken = rest_.first(std::min(most, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return {taken.begin(), taken.end()};
  }
  /// At most 255 bytes behind their number; twenty times that when the text repeats itself.
  std::string Text() {
    const std::uint8_t repeats = Below(8) == 7 ? 20 : 1;
    const Bytes bytes = Take(Byte());
    std::string text;
    for (int i = 0; i < repeats; ++i) text.append(bytes.begin(), bytes.end());
    return text;
  }

 private:
  std::uint32_t Number(std::size_t bytes) {
    std::uint32_t number = 0;
    for (const std::uint8_t byte : Take(bytes)) number = number << 8 | byte;
    return number;
  }

  ByteView rest_;
};

/// A file that exists in memory only.
class MemoryFile {
 public:
  explicit MemoryFile(ByteView contents = {}) : fd_(memfd_create("input", MFD_CLOEXEC)) {
    Require(fd_ >= 0, "memory files can be made");
    Fill(contents);
  }
  ~MemoryFile() { close(fd_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  void Fill(ByteView contents) {
    Require(ftruncate(fd_, 0) == 0 && pwrite(fd_, contents.data(), contents.size(), 0) ==
                                          static_cast<ssize_t>(contents.size()),
            "memory files can be written");
  }
  std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

 private:
  const int fd_;
};

}  // namespace qzhid::fuzz
