#pragma once

#include "platform/linux/node_facts.h"
#include "platform/system/linux/system_call.h"

namespace qzhid::platform {

/// Opens the node's device file for reading and writing; fails unless what was opened is that node.
OpenStatus OpenDeviceFile(const NodeFacts& node, CFileHandle& file);

}  // namespace qzhid::platform
