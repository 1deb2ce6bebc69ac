// Flash contents that survive the process, one file for each hub.
#pragma once

#include <filesystem>
#include <string>

#include "virtualhub/hub/hub.h"

namespace virtualhub {

/// `folder`/`name`.flash
std::filesystem::path StateFilePath(const std::filesystem::path& folder, const std::string& name);

/// Takes the flash contents from the file, as after a loss of power. A file that is not there
/// changes nothing. A damaged one or one of a hub with another flash changes nothing either; the
/// text then says what is wrong. It is empty otherwise.
std::string LoadStateFile(const std::filesystem::path& file, Hub& hub);

/// Writes the file as a whole, with the folder if need be. The text says why that failed; it is
/// empty on success.
std::string SaveStateFile(const std::filesystem::path& file, const Hub& hub);

}  // namespace virtualhub
