#include "platform/library_folder.h"

namespace qzhid {

std::string FolderPart(const std::string& path) {
  const std::size_t separator = path.rfind(platform::PathSeparator());
  return separator == std::string::npos ? std::string() : path.substr(0, separator + 1);
}

platform::Status PathBesideLibrary(const std::string& name, std::string& path) {
  std::string library;
  if (const auto status = platform::GetLibraryPath(library); !status) return status;
  const std::string folder = FolderPart(library);
  path = (folder.empty() ? library : folder) + name;
  return {};
}

}  // namespace qzhid
