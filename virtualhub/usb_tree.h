// The device nodes of the virtual machine: host controllers, root hubs, hubs, USB devices and the
// HID node below each.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "virtualhub/port_path.h"

namespace virtualhub {

/// Number of one node instance; never 0 and never used twice.
using DevInst = std::uint32_t;

/// Texts that replace a node's own. All texts are UTF-8.
struct NodeOverrides {
  std::optional<std::string> deviceId;
  std::optional<std::vector<std::string>> hardwareIds;
  std::optional<std::string> locationInfo;
  std::optional<std::vector<std::string>> locationPaths;
  std::optional<std::uint32_t> address;
  bool noParent = false;
};

/// One present node. A property without value does not exist on the node.
struct Node {
  DevInst parent = 0;  ///< 0 at the top of the tree
  std::string deviceId;
  std::vector<std::string> hardwareIds = {};
  std::optional<std::string> locationInfo = {};
  std::optional<std::vector<std::string>> locationPaths = {};
  std::optional<std::uint32_t> address = {};
};

struct UsbIds {
  std::uint16_t vid = 0, pid = 0;
};

class UsbTree {
 public:
  /// The two nodes of an attached device; both 0 when there is none.
  struct Instance {
    DevInst usb = 0, hid = 0;
  };

  /// Overrides of the root hubs, in order, and of hubs by place.
  UsbTree(std::vector<NodeOverrides> roots, std::map<PortPath, NodeOverrides> hubs);

  /// Adds the nodes of a device, and those of the hubs above it that are not there yet.
  Instance Attach(const PortPath& place, UsbIds ids, const NodeOverrides& usb,
                  const NodeOverrides& hid);
  void Detach(Instance& instance);

  /// The present node of that number, null when there is none.
  const Node* Find(DevInst node) const;

 private:
  struct HubPlace {
    DevInst node;
    std::uint32_t number;      ///< N of Hub_#000N
    std::string locationPath;  ///< of the hub itself
    std::string firmwarePath;  ///< its place as the firmware's tables name it
  };

  const HubPlace& HubAt(const PortPath& place);
  const HubPlace& AddRoot(const PortPath& place);
  Node DeviceNode(const PortPath& place, const HubPlace& above, UsbIds ids) const;
  DevInst Add(Node node, const NodeOverrides& overrides);

  std::vector<NodeOverrides> rootOverrides_;
  std::map<PortPath, NodeOverrides> hubOverrides_;
  std::map<PortPath, HubPlace> hubs_;
  std::map<DevInst, Node> nodes_;
  DevInst lastInstance_ = 0;
};

}  // namespace virtualhub
