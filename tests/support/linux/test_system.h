// What tests need to know of the system that they run on.
#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>

namespace qzhid::test {

inline constexpr std::uint32_t kStalled = EPIPE;  // the device refuses a request
inline constexpr std::uint32_t kGone = ENODEV;    // the device has left the bus
inline constexpr std::uint32_t kInvalidHandle = EBADF;

/// A file that exists and that nobody can open.
class UnopenableFile {
 public:
  explicit UnopenableFile(const std::string& path) : m_strPath(path) {
    std::remove(path.c_str());
    m_bMade = mknod(path.c_str(), S_IFSOCK | 0600, 0) == 0;
  }
  ~UnopenableFile() { std::remove(m_strPath.c_str()); }
  UnopenableFile(const UnopenableFile&) = delete;
  UnopenableFile& operator=(const UnopenableFile&) = delete;

  bool made() const { return m_bMade; }

 private:
  const std::string m_strPath;
  bool m_bMade;
};

}  // namespace qzhid::test
