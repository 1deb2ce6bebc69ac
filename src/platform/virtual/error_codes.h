// The system's numbers for what goes wrong on the machine.
#pragma once

#include "platform/platform.h"
#include "virtualhub/hub/result.h"

namespace qzhid::platform {

Status ToStatus(const virtualhub::Result& result);

/// The failure of a call on an empty handle.
Status InvalidHandle();

}  // namespace qzhid::platform
