#include "platform/system/library_file.h"

#include <dlfcn.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>

#include "platform/system/linux/system_call.h"

namespace qzhid::platform {

namespace {

struct LibraryFile {
  Status status;
  std::array<char, PATH_MAX> path;
};

LibraryFile ReadLibraryFile() noexcept {
  LibraryFile file{};
  Dl_info info{};
  // Any address inside the library will do; this function's own is one.
  if (dladdr(reinterpret_cast<void*>(&ReadLibraryFile), &info) == 0 || info.dli_fname == nullptr) {
    return {Status::Failure(ENOENT), {}};
  }
  std::size_t length = 0;
  if (info.dli_fname[0] != PathSeparator()) {
    if (getcwd(file.path.data(), file.path.size()) == nullptr) return {LastFailure(), {}};
    length = std::strlen(file.path.data());
    file.path[length++] = PathSeparator();
  }
  const std::size_t size = std::strlen(info.dli_fname) + 1;
  if (length + size > file.path.size()) return {Status::Failure(ENAMETOOLONG), {}};
  std::memcpy(file.path.data() + length, info.dli_fname, size);
  return file;
}

// Read while the library is being loaded: a relative path starts at the current folder of that
// time.
const LibraryFile g_LibraryFile = ReadLibraryFile();

}  // namespace

Status SystemLibraryPath(std::string& path) {
  if (g_LibraryFile.status) path = g_LibraryFile.path.data();
  return g_LibraryFile.status;
}

}  // namespace qzhid::platform
