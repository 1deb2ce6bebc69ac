// Interface paths: the device file and the number of its node, because another device may have the
// file by the time it is opened: "/dev/hidraw3#7".
#pragma once

#include <string>

#include "platform/platform.h"

namespace qzhid::platform {

std::wstring HidPath(const std::string& deviceFile, DevInst node);

/// False when the text is not such a path.
bool ParseHidPath(const std::wstring& path, std::string& deviceFile, DevInst& node);

}  // namespace qzhid::platform
