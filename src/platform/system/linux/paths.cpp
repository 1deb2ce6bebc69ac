#include <sys/stat.h>
#include <unistd.h>

#include "platform/platform.h"

namespace qzhid::platform {

std::filesystem::path FilePath(const std::string& path) { return path; }

bool PathExists(const char* path) { return access(path, F_OK) == 0; }

bool IsDirectory(const char* path) {
  struct stat facts {};
  return stat(path, &facts) == 0 && S_ISDIR(facts.st_mode);
}

bool IsReadableAndWritable(const char* path) { return access(path, R_OK | W_OK) == 0; }

}  // namespace qzhid::platform
