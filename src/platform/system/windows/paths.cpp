// Tests of narrow paths, in their wide form, which can be longer than MAX_PATH.
#include "platform/system/windows/system.h"

// After the general Windows header.
#include <io.h>

namespace qzhid::platform {

std::filesystem::path FilePath(const std::string& path) {
  const int bytes = static_cast<int>(path.size());
  const int units = MultiByteToWideChar(CP_ACP, 0, path.data(), bytes, nullptr, 0);
  std::wstring wide(units > 0 ? static_cast<std::size_t>(units) : 0, L'\0');
  MultiByteToWideChar(CP_ACP, 0, path.data(), bytes, wide.data(), units);
  return wide;
}

bool PathExists(const char* path) { return _waccess(FilePath(path).c_str(), 0) == 0; }

bool IsDirectory(const char* path) {
  const DWORD attributes = GetFileAttributesW(FilePath(path).c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool IsReadableAndWritable(const char* path) {
  constexpr int kReadAndWrite = 6;
  return _waccess(FilePath(path).c_str(), kReadAndWrite) == 0;
}

}  // namespace qzhid::platform
