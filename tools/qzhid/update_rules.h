// Which hubs may be written.
#pragma once

namespace qzhid {

/// What the user allows.
struct UpdateRules {
  bool isRecovery = false;   ///< only hubs in their loader
  bool takesLoader = false;  ///< also hubs in their loader
  bool isForced = false;  ///< also hubs that run the version, or are other products of the vendor
  bool allowsOlder = false;  ///< also hubs that run a newer version

  bool operator==(const UpdateRules&) const = default;
};

}  // namespace qzhid
