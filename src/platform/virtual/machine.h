// The machine that the virtual backend runs on.
#pragma once

#include <memory>

#include "virtualhub/bus/current_machine.h"

namespace qzhid::platform {

/// The current machine of the process. The unloading of the library ends it.
std::shared_ptr<virtualhub::Machine> HoldMachine();

}  // namespace qzhid::platform
