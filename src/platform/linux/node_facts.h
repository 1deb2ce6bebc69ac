#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace qzhid::platform {

/// All facts of one device node. They do not change while the node is there.
struct NodeFacts {
  std::string folder = {};     ///< in sysfs; there as long as the node is
  std::uint64_t instance = 0;  ///< of the folder
  std::string deviceFile = {};
  std::string parentFolder = {};  ///< empty at the top of the tree
  std::string deviceId = {};
  std::vector<std::string> hardwareIds = {};
  std::string locationInfo = {};  ///< empty for a node without
  std::string locationPath = {};  ///< empty for a node without
  std::uint32_t port = 0;         ///< on its hub; 0 for a node that is on none
  std::uint32_t vid = 0, pid = 0;
  bool hasInterruptOut = false;  ///< of a HID node: its interface has such an endpoint
};

/// Reads a HID node, by the folder of its hidraw device. Opens no device.
Status ReadHidNode(const std::string& folder, NodeFacts& node);

/// Reads a USB device or root hub.
Status ReadUsbNode(const std::string& folder, NodeFacts& node);

}  // namespace qzhid::platform
