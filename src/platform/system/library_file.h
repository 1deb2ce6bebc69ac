// The library's own file, for the backends of one system.
#pragma once

#include "platform/platform.h"

namespace qzhid::platform {

/// What GetLibraryPath returns.
Status SystemLibraryPath(std::string& path);

}  // namespace qzhid::platform
