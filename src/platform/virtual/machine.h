// The machine that the virtual backend runs on.
#pragma once

#include <memory>

#include "virtualhub/current_world.h"

namespace qzhid::platform {

/// The current machine of the process. The unloading of the library ends it.
std::shared_ptr<virtualhub::World> HoldMachine();

}  // namespace qzhid::platform
