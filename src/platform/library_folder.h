// Paths of files in the library's folder or in the folder of another file.
#pragma once

#include <string>

#include "platform/platform.h"

namespace qzhid {

/// The path up to and including its last separator; empty when there is none.
std::string FolderPart(const std::string& path);

/// The path of a file of that name in the library's own folder. When the library's file path cannot
/// be found out, that failure, and `path` is untouched. A library path without separator is taken
/// whole as the folder.
platform::Status PathBesideLibrary(const std::string& name, std::string& path);

}  // namespace qzhid
