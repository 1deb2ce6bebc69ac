// Flash contents that survive the process, one file for each hub.
#pragma once

#include <filesystem>
#include <string>

#include "virtualhub/base/files.h"
#include "virtualhub/hub/hub.h"

namespace virtualhub {

/// `folder`/`name`.flash
std::filesystem::path StateFilePath(const std::filesystem::path& folder, const std::string& name);

/// Takes the flash contents from the file, as after a loss of power; nothing changes when there is
/// no such file. Throws FileError, and nothing changes, when it is damaged or of a hub with another
/// flash.
void LoadStateFile(const std::filesystem::path& file, Hub& hub);

/// Writes the file as a whole, and makes its folder if there is none. Throws FileError.
void SaveStateFile(const std::filesystem::path& file, const Hub& hub);

}  // namespace virtualhub
