// Writes an image to one hub, and tries again when that fails.
#pragma once

#include <functional>

#include "qzhid/hubs.h"
#include "qzhid/update_messages.h"

namespace qzhid {

/// Takes what becomes of the hub.
using Reporter = std::function<void(const WorkerReport&)>;
/// Whether to try once more, asked after a try has failed.
using MayRetry = std::function<bool()>;

/// Writes job.image, whose version is given, to the hub of the last list; after a failure waits
/// until the hub's port has it again, says what it runs, and tries again up to job.retries times,
/// from the loader, too. Throws Failure when the hub does not run the image in the end.
void WriteHub(Host& host, const WorkerJob& job, const Hub& hub, std::uint16_t version,
              const Reporter& report, const MayRetry& mayRetry);

/// The hub that can be opened at a location; if that is empty, the only one. Throws Failure when
/// there is none.
Hub HubAt(Host& host, const std::string& location);

}  // namespace qzhid
