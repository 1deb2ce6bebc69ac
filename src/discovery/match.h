// A test whether a device node is a given device.
#pragma once

#include <cstdint>

namespace qzhid {

class IDev;

class IMatch {
 public:
  virtual ~IMatch() = default;
  virtual bool Match(std::uint32_t node, IDev* dev) = 0;
};

}  // namespace qzhid
