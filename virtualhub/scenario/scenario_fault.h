// The part of a scenario that describes one fault; for the scenario reader only.
#pragma once

#include "virtualhub/bus/faults.h"
#include "virtualhub/scenario/json_reader.h"

namespace virtualhub {

/// Reads one fault. Whether its device exists is for the caller to check.
Fault ReadFault(const JsonReader& in);

}  // namespace virtualhub
