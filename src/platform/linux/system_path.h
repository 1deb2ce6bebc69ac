#pragma once

#include <string>

namespace qzhid::platform {

/// What comes before each path of the system: nothing, except in tests, which have a folder there
/// that stands for the whole system.
inline constinit const char* g_SystemRoot = "";

/// A path of the system, such as "/sys/class".
inline std::string SystemPath(const char* path) { return std::string(g_SystemRoot) + path; }

}  // namespace qzhid::platform
