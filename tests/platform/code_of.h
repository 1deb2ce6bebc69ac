#pragma once

#include "platform/platform.h"

namespace qzhid::platform::test {

/// The system's code of a failure; 0 after success.
inline int CodeOf(const Status& status) { return status ? 0 : static_cast<int>(status.code); }

}  // namespace qzhid::platform::test
