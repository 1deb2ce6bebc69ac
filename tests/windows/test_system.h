// What tests need to know of the system that they run on.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#undef far  // left over from 16-bit times, and good names
#undef near

#include <cstdint>
#include <string>

namespace qzhid::test {

inline constexpr std::uint32_t kStalled = ERROR_GEN_FAILURE;  // the device refuses a request
inline constexpr std::uint32_t kGone = ERROR_DEVICE_NOT_CONNECTED;
inline constexpr std::uint32_t kInvalidHandle = ERROR_INVALID_HANDLE;

/// A file that exists and that nobody can open.
class UnopenableFile {
 public:
  explicit UnopenableFile(const std::string& path)
      : m_File(CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                           FILE_FLAG_DELETE_ON_CLOSE, nullptr)) {}
  ~UnopenableFile() { CloseHandle(m_File); }
  UnopenableFile(const UnopenableFile&) = delete;
  UnopenableFile& operator=(const UnopenableFile&) = delete;

  bool made() const { return m_File != INVALID_HANDLE_VALUE; }

 private:
  const HANDLE m_File;
};

}  // namespace qzhid::test
