// The device nodes of the machine: host controllers, root hubs, hubs, USB devices, their
// interfaces, and the HID nodes below.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "virtualhub/bus/port_path.h"

namespace virtualhub {

/// Number of a present node; never 0.
using DevInst = std::uint32_t;

/// Which number a node gets when its device comes back on the bus.
enum class InstanceNumbers {
  ById,      ///< as on Windows: the one that a node with the same device id had before
  ByArrival  ///< as on Linux: always a new one
};

/// Properties that replace a node's own. All texts are UTF-8.
struct NodeOverrides {
  std::optional<std::string> deviceId;
  std::optional<std::vector<std::string>> hardwareIds;
  std::optional<std::string> locationInfo;
  std::optional<std::vector<std::string>> locationPaths;
  std::optional<std::uint32_t> address;
  bool noLocationInfo = false, noLocationPaths = false, noAddress = false, noParent = false;
};

/// The nodes of a device: a USB node, a node for each interface if it is a composite device, and
/// the HID nodes. A HID node's part of the device is written as in its ids: "" for the only one,
/// "MI_01" for that of an interface, "Col02" or "MI_01&Col02" for one of several collections.
struct DeviceNodes {
  std::string part;                   ///< of the HID node that takes the device's reports
  std::vector<std::string> siblings;  ///< parts of the other HID nodes
  NodeOverrides usb, hid;             ///< hid: of the node that takes the reports
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
  /// The nodes of an attached device; all 0 for none.
  struct Instance {
    DevInst usb = 0;
    DevInst hid = 0;                ///< takes the device's reports
    std::vector<DevInst> hidNodes;  ///< all of them, in the order of their names
    std::vector<DevInst> interfaces;
  };

  /// Overrides of the root hubs, in order, and of hubs by place.
  UsbTree(InstanceNumbers numbers, std::vector<NodeOverrides> roots,
          std::map<PortPath, NodeOverrides> hubs);

  /// Adds the nodes of a device, and those of hubs above it that do not exist yet.
  Instance Attach(const PortPath& place, UsbIds ids, const DeviceNodes& nodes);
  void Detach(Instance& instance);

  /// Whether a hub is there, so that no device can be.
  bool HasHub(const PortPath& place) const;

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
  void AddDevice(const PortPath& place, UsbIds ids, const DeviceNodes& nodes, Instance& instance);
  DevInst AddInterface(DevInst usb, UsbIds ids, const std::string& part);
  DevInst Add(Node node, const NodeOverrides& overrides);
  DevInst NumberFor(const std::string& deviceId);

  const InstanceNumbers numbers_;
  std::vector<NodeOverrides> rootOverrides_;
  std::map<PortPath, NodeOverrides> hubOverrides_;
  std::map<PortPath, HubPlace> hubs_;
  std::map<DevInst, Node> nodes_;
  std::map<std::string, DevInst> numberOfId_;  ///< of all nodes so far
  DevInst lastNumber_ = 0;
};

}  // namespace virtualhub
