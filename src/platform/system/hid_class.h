#pragma once

#include "platform/platform.h"

namespace qzhid::platform {

/// Whether that is the class of HID device interfaces.
bool IsHidClass(const Guid& guid);

}  // namespace qzhid::platform
