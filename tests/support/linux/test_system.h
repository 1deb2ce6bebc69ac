// What differs between the systems that tests run on; the other one is support/windows. Here:
// Linux, with the library's code inside the test program.
#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>

#include "support/log_capture.h"

namespace qzhid::test {

/// What the library logs while it lives.
using ExportLog = LogCapture;

inline constexpr std::uint32_t kStalled = EPIPE;  // the device refuses a request
inline constexpr std::uint32_t kGone = ENODEV;    // the device has left the bus
inline constexpr std::uint32_t kInvalidHandle = EBADF;

/// A file that exists and that nobody can open.
class UnopenableFile {
 public:
  explicit UnopenableFile(const std::string& path) : m_strPath(path) {
    mknod(path.c_str(), S_IFSOCK | 0600, 0);
  }
  ~UnopenableFile() { std::remove(m_strPath.c_str()); }
  UnopenableFile(const UnopenableFile&) = delete;
  UnopenableFile& operator=(const UnopenableFile&) = delete;

 private:
  const std::string m_strPath;
};

}  // namespace qzhid::test
