// Recognises a node by the device's vendor and product ids.
#pragma once

#include "device/match.h"

namespace qzhid {

/// Accepts a node when one of its hardware ids holds one of the device's pairs. The pairs are read
/// as (product id, vendor id).
class CVidPidMatch final : public IMatch {
 public:
  bool Match(std::uint32_t node, IDev* dev) const override;
};

}  // namespace qzhid
