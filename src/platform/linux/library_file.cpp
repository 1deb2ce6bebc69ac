#include <dlfcn.h>

#include <cerrno>

#include "platform/library_file.h"

namespace qzhid::platform {

Status SystemLibraryPath(std::string& path) {
  Dl_info info{};
  // Any address inside the library will do; this function's own is one.
  if (dladdr(reinterpret_cast<void*>(&SystemLibraryPath), &info) == 0 ||
      info.dli_fname == nullptr) {
    return Status::Failure(ENOENT);
  }
  path = info.dli_fname;
  return {};
}

}  // namespace qzhid::platform
