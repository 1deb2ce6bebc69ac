// Paths of files that stand beside the library or beside each other.
#pragma once

#include <optional>
#include <string>

namespace qzhid {

/// The path up to and including its last separator; empty when there is none.
std::string FolderPart(const std::string& path);

/// The path of a file of that name in the library's own folder; no value when the library's file
/// path cannot be found out. A library path without separator is taken whole as the folder.
std::optional<std::string> PathBesideLibrary(const std::string& name);

}  // namespace qzhid
