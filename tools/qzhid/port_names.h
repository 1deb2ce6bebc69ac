// The names that a user has given to ports.
#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace qzhid {

/// Port ids by name.
using PortNames = std::map<std::string, std::string>;

/// Reads a file of lines "NAME = PORT", such as "bay 3 = 1-3.1". Blank lines, and what follows a
/// '#', do not count; a file that does not exist has no names. Throws Failure with the number of
/// the line that is none of these, repeats a name or a port, or gives a name that could also say
/// something else, such as a port id.
PortNames ReadPortNames(const std::filesystem::path& file);

}  // namespace qzhid
