// The hubs as the operating system shows them, also those that the library cannot find.
#pragma once

#include <string>
#include <vector>

namespace qzhid {

struct AttachedHub {
  std::string vid;  ///< four hexadecimal digits in upper case, as is the product id
  std::string pid;
  std::string location;  ///< as the library names it
  bool hasNode;          ///< a HID node; the library finds no hub without one
};

/// The USB devices of the hubs' vendor that have a HID interface. Opens none of them.
std::vector<AttachedHub> AttachedHubs();

}  // namespace qzhid
