// What the operating system knows about hubs, for a bundle.
#pragma once

#include <vector>

#include "qzhid/bundle/archive.h"
#include "qzhid/bundle/redaction.h"

namespace qzhid {

/// The system's version, its USB devices, the rules that are in force for hubs, and what the kernel
/// has reported. A text says so when it cannot be read.
std::vector<ArchiveEntry> CollectEvidence();

/// How the user, the computer and the USB devices are called.
PrivateNames CollectPrivateNames();

}  // namespace qzhid
