#pragma once

#include <array>

namespace qzhid {

/// Where udev reads rules. A file hides those of its name in the folders after it.
inline constexpr std::array kRuleFolders{"/etc/udev/rules.d", "/run/udev/rules.d",
                                         "/usr/local/lib/udev/rules.d", "/usr/lib/udev/rules.d",
                                         "/lib/udev/rules.d"};

}  // namespace qzhid
