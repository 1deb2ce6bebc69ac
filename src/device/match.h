// How a device recognises its node.
#pragma once

#include <cstdint>

namespace qzhid {

class IDev;

/// Tests whether a device node is a given device. Has no state, and outlives all devices.
class IMatch {
 public:
  virtual bool Match(std::uint32_t node, IDev* dev) const = 0;

 protected:
  ~IMatch() = default;
};

/// The tests that devices use; those who can look at device nodes provide them.
struct Matchers {
  const IMatch& byIds;    ///< vendor and product ids
  const IMatch& byPlace;  ///< place in the USB tree
};

}  // namespace qzhid
