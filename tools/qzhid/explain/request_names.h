// The vendor requests by name.
#pragma once

#include <string>

#include "qzhid/explain/log_jobs.h"

namespace qzhid {

/// "40/C8".
std::string CodeOf(const LoggedRequest& request);

/// "write 128 bytes to the flash at 0x003200"; empty for a request that no hub knows.
std::string MeaningOf(const LoggedRequest& request);

/// "write to the flash", whatever its arguments.
std::string KindOf(const LoggedRequest& request);

/// Both: "40/C8 (write 128 bytes to the flash at 0x003200)".
std::string TextOf(const LoggedRequest& request);

}  // namespace qzhid
