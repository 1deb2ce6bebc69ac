// Whether a hub is to be written.
#pragma once

#include "qzhid/image.h"
#include "qzhid/state.h"
#include "qzhid/update_messages.h"

namespace qzhid {

/// Throws Failure when the job must not be done to a hub in that state.
void CheckHub(const Hub& hub, const HubState& state, const Image& image, const WorkerJob& job);

}  // namespace qzhid
