// Tests of narrow paths, as the C runtime answers them.
#include "platform/windows/system.h"

// After the general Windows header.
#include <io.h>

namespace qzhid::platform {

bool PathExists(const char* path) { return _access(path, 0) == 0; }

bool IsDirectory(const char* path) {
  const DWORD attributes = GetFileAttributesA(path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool IsReadableAndWritable(const char* path) {
  constexpr int kReadAndWrite = 6;
  return _access(path, kReadAndWrite) == 0;
}

}  // namespace qzhid::platform
