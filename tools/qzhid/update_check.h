// Whether a hub is to be written.
#pragma once

#include "qzhid/image.h"
#include "qzhid/state.h"
#include "qzhid/update_rules.h"

namespace qzhid {

enum class Verdict { Write, Current };

/// Throws Failure when the image must not be written to a hub in that state.
Verdict CheckHub(const Hub& hub, const HubState& state, const Image& image,
                 const UpdateRules& rules);

}  // namespace qzhid
