#include "platform/library_folder.h"

#include "platform/platform.h"

namespace qzhid {

std::string FolderPart(const std::string& path) {
  const std::size_t separator = path.rfind(platform::PathSeparator());
  return separator == std::string::npos ? std::string() : path.substr(0, separator + 1);
}

std::optional<std::string> PathBesideLibrary(const std::string& name) {
  std::string library;
  if (!platform::GetLibraryPath(library)) return std::nullopt;
  const std::string folder = FolderPart(library);
  return (folder.empty() ? library : folder) + name;
}

}  // namespace qzhid
