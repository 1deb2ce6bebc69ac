// The account of a capture of USB transfers.
#pragma once

#include <istream>
#include <string>

#include "qzhid/explain/log_account.h"
#include "virtualhub/base/bytes.h"

namespace qzhid {

/// Reads a capture to its end, of whatever size. `beginning` is what was read of it before. Throws
/// Failure when it is damaged or has no requests to a hub.
LogAccount ReadCapture(const std::string& file, virtualhub::ByteView beginning,
                       std::istream& stream);

}  // namespace qzhid
