// What the fuzz targets share. The same input always does the same.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "virtualhub/base/bytes.h"

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

/// Takes values off an input, from the front. After its end everything is 0 or empty.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

  bool IsEmpty() const { return rest_.empty(); }
  Bytes Take(std::size_t most) {
    const ByteView taken = rest_.first(std::min(most, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return {taken.begin(), taken.end()};
  }
  std::uint32_t Number(std::size_t bytes) {
    std::uint32_t number = 0;
    for (; bytes > 0 && !IsEmpty(); --bytes, rest_ = rest_.subspan(1)) {
      number = number << 8 | rest_.front();
    }
    return number;
  }
  std::uint8_t Byte() { return static_cast<std::uint8_t>(Number(1)); }
  std::uint16_t Word() { return static_cast<std::uint16_t>(Number(2)); }
  bool Flag() { return Byte() % 2 == 1; }
  std::string Text() {
    const Bytes bytes = Take(Byte() * 4u);
    return {bytes.begin(), bytes.end()};
  }

 private:
  ByteView rest_;
};

/// A file that exists in memory only.
class MemoryFile {
 public:
  explicit MemoryFile(ByteView contents = {}) { Fill(contents); }
  void Fill(ByteView contents) {
    Require(ftruncate(fd_, 0) == 0 && pwrite(fd_, contents.data(), contents.size(), 0) ==
                                          static_cast<ssize_t>(contents.size()),
            "memory files can be written");
  }
  std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

 private:
  const int fd_ = memfd_create("input", 0);
};

}  // namespace qzhid::fuzz
