// Whether a hub is to be written.
#pragma once

#include "qzhid/image.h"
#include "qzhid/state.h"

namespace qzhid {

/// What the user allows.
struct UpdateRules {
  bool isRecovery = false;   ///< only hubs in their loader
  bool takesLoader = false;  ///< also hubs in their loader
  bool isForced = false;  ///< also hubs that run the version, or are other products of the vendor
  bool allowsOlder = false;  ///< also hubs that run a newer version

  bool operator==(const UpdateRules&) const = default;
};

enum class Verdict { Write, Current };

/// Throws Failure when the image must not be written to a hub in that state.
Verdict CheckHub(const Hub& hub, const HubState& state, const Image& image,
                 const UpdateRules& rules);

}  // namespace qzhid
