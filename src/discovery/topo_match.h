// Recognises a node by its place in the USB tree.
#pragma once

#include "device/match.h"

namespace qzhid {

/// Compares location paths when the device has one, else level and port.
class CTopoMatch final : public IMatch {
 public:
  bool Match(std::uint32_t node, IDev* dev) const override;
};

}  // namespace qzhid
