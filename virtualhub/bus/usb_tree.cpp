#include "virtualhub/bus/usb_tree.h"

#include <cstdio>
#include <set>

#include "virtualhub/base/crc32.h"

namespace virtualhub {

namespace {

// The first root hub's controller has this PCI device number.
constexpr std::uint32_t kFirstControllerDevice = 0x14;
constexpr UsbIds kHubIds{0x05E3, 0x0610};
constexpr unsigned kRevision = 0x0100;

template <typename... Values>
std::string Format(const char* format, Values... values) {
  char text[160];
  std::snprintf(text, sizeof(text), format, values...);
  return text;
}

// The middle part of an instance id: the same for one place on every run.
unsigned PlaceMark(const std::string& locationPath) {
  const ByteView bytes(reinterpret_cast<const std::uint8_t*>(locationPath.data()),
                       locationPath.size());
  return Crc32(bytes);
}

std::string IdPart(UsbIds ids) { return Format("VID_%04X&PID_%04X", ids.vid, ids.pid); }

// The interface in a HID node's part of its device, such as "MI_01"; empty for none.
std::string InterfaceOf(const std::string& part) {
  return part.compare(0, 3, "MI_") == 0 ? part.substr(0, 5) : "";
}

// The HID node of that part of a device.
Node HidNodeOf(UsbIds ids, const std::string& part, unsigned mark) {
  const std::string name = "HID\\" + IdPart(ids), suffix = part.empty() ? "" : "&" + part;
  return {.deviceId = name + suffix + Format("\\7&%08X&0&0000", mark),
          .hardwareIds = {name + Format("&REV_%04X", kRevision) + suffix, name + suffix,
                          "HID_DEVICE_UP:FF00_U:0001", "HID_DEVICE"}};
}

}  // namespace

UsbTree::UsbTree(InstanceNumbers numbers, std::vector<NodeOverrides> roots,
                 std::map<PortPath, NodeOverrides> hubs)
    : numbers_(numbers), rootOverrides_(std::move(roots)), hubOverrides_(std::move(hubs)) {}

DevInst UsbTree::NumberFor(const std::string& deviceId) {
  if (numbers_ == InstanceNumbers::ByArrival) return ++lastNumber_;
  DevInst& number = numberOfId_[deviceId];
  // Two nodes have the same id only when the scenario says so.
  if (number == 0 || nodes_.contains(number)) number = ++lastNumber_;
  return number;
}

DevInst UsbTree::Add(Node node, const NodeOverrides& overrides) {
  if (overrides.deviceId) node.deviceId = *overrides.deviceId;
  if (overrides.hardwareIds) node.hardwareIds = *overrides.hardwareIds;
  if (overrides.locationInfo) node.locationInfo = overrides.locationInfo;
  if (overrides.locationPaths) node.locationPaths = overrides.locationPaths;
  if (overrides.address) node.address = overrides.address;
  if (overrides.noLocationInfo) node.locationInfo.reset();
  if (overrides.noLocationPaths) node.locationPaths.reset();
  if (overrides.noAddress) node.address.reset();
  if (overrides.noParent) node.parent = 0;
  const DevInst number = NumberFor(node.deviceId);
  nodes_[number] = std::move(node);
  return number;
}

const UsbTree::HubPlace& UsbTree::AddRoot(const PortPath& place) {
  const unsigned device = kFirstControllerDevice + place.root - 1;
  const std::string controllerPath = Format("PCIROOT(0)#PCI(%02X00)", device);
  const DevInst controller =
      Add({.deviceId = Format("PCI\\VEN_1B36&DEV_000D&SUBSYS_11001AF4&REV_01\\3&11583659&0&%02X",
                              device << 3),
           .hardwareIds = {"PCI\\VEN_1B36&DEV_000D&REV_01", "PCI\\VEN_1B36&DEV_000D"},
           .locationPaths = std::vector<std::string>{controllerPath}},
          {});
  const std::string path = controllerPath + "#USBROOT(0)";
  const NodeOverrides overrides =
      place.root <= rootOverrides_.size() ? rootOverrides_[place.root - 1] : NodeOverrides();
  const DevInst root = Add({.parent = controller,
                            .deviceId = Format("USB\\ROOT_HUB30\\4&%08X&0&0", PlaceMark(path)),
                            .hardwareIds = {"USB\\ROOT_HUB30&VID1B36&PID000D&REV0001",
                                            "USB\\ROOT_HUB30&VID1B36&PID000D", "USB\\ROOT_HUB30"},
                            .locationPaths = std::vector<std::string>{path}},
                           overrides);
  const HubPlace added{root, static_cast<std::uint32_t>(hubs_.size() + 1), path,
                       Format("ACPI(_SB_)#ACPI(PCI0)#ACPI(XHC%u)#ACPI(RHUB)", place.root)};
  return hubs_.emplace(place, added).first->second;
}

const UsbTree::HubPlace& UsbTree::HubAt(const PortPath& place) {
  const auto found = hubs_.find(place);
  if (found != hubs_.end()) return found->second;
  if (place.ports.empty()) return AddRoot(place);
  const HubPlace& above = HubAt(place.Parent());
  Node node = DeviceNode(place, above, kHubIds);
  const HubPlace added{0, static_cast<std::uint32_t>(hubs_.size() + 1), node.locationPaths->front(),
                       node.locationPaths->back()};
  HubPlace& hub = hubs_.emplace(place, added).first->second;
  const auto overrides = hubOverrides_.find(place);
  hub.node =
      Add(std::move(node), overrides == hubOverrides_.end() ? NodeOverrides() : overrides->second);
  return hub;
}

Node UsbTree::DeviceNode(const PortPath& place, const HubPlace& above, UsbIds ids) const {
  const std::uint32_t port = place.ports.back();
  const std::string path = above.locationPath + Format("#USB(%u)", port);
  const std::string name = "USB\\" + IdPart(ids);
  return {.parent = above.node,
          .deviceId = name + Format("\\6&%08X&0&%u", PlaceMark(path), port),
          .hardwareIds = {name + Format("&REV_%04X", kRevision), name},
          .locationInfo = Format("Port_#%04u.Hub_#%04u", port, above.number),
          .locationPaths =
              std::vector<std::string>{path, above.firmwarePath + Format("#ACPI(PRT%u)", port)},
          .address = port};
}

UsbTree::Instance UsbTree::Attach(const PortPath& place, UsbIds ids, const DeviceNodes& nodes) {
  Instance instance;
  try {
    AddDevice(place, ids, nodes, instance);
  } catch (...) {
    Detach(instance);
    throw;
  }
  return instance;
}

void UsbTree::AddDevice(const PortPath& place, UsbIds ids, const DeviceNodes& nodes,
                        Instance& instance) {
  Node usbNode = DeviceNode(place, HubAt(place.Parent()), ids);
  const unsigned mark = PlaceMark(usbNode.locationPaths->front());
  std::set<std::string> parts(nodes.siblings.begin(), nodes.siblings.end());
  parts.insert(nodes.part);
  instance.hidNodes.reserve(parts.size());
  instance.interfaces.reserve(parts.size());
  instance.usb = Add(std::move(usbNode), nodes.usb);
  std::string interfaceName;
  for (const std::string& part : parts) {
    if (InterfaceOf(part) != interfaceName) {
      interfaceName = InterfaceOf(part);
      instance.interfaces.push_back(AddInterface(instance.usb, ids, interfaceName));
    }
    const bool isOwn = part == nodes.part;
    Node node = HidNodeOf(ids, part, mark);
    node.parent = interfaceName.empty() ? instance.usb : instance.interfaces.back();
    instance.hidNodes.push_back(Add(std::move(node), isOwn ? nodes.hid : NodeOverrides()));
    if (isOwn) instance.hid = instance.hidNodes.back();
  }
}

DevInst UsbTree::AddInterface(DevInst usb, UsbIds ids, const std::string& part) {
  const Node& above = nodes_.at(usb);
  const auto number = static_cast<std::uint32_t>(std::stoul(part.substr(3), nullptr, 16));
  const std::string name = "USB\\" + IdPart(ids);
  std::optional<std::vector<std::string>> paths = above.locationPaths;
  if (paths) {
    for (std::string& path : *paths) path += Format("#USBMI(%u)", number);
  }
  const unsigned mark = PlaceMark(above.deviceId);
  return Add(
      {.parent = usb,
       .deviceId = name + "&" + part + Format("\\7&%08X&0&%04X", mark, number),
       .hardwareIds = {name + Format("&REV_%04X&", kRevision) + part, name + "&" + part},
       .locationInfo = Format("0000.0014.0000.%03u.000.000.000.000.000", above.address.value_or(0)),
       .locationPaths = std::move(paths),
       .address = number},
      {});
}

void UsbTree::Detach(Instance& instance) {
  nodes_.erase(instance.usb);
  for (const auto* nodes : {&instance.hidNodes, &instance.interfaces}) {
    for (const DevInst node : *nodes) nodes_.erase(node);
  }
  instance = {};
}

bool UsbTree::HasHub(const PortPath& place) const {
  return hubs_.contains(place) || hubOverrides_.contains(place);
}

const Node* UsbTree::Find(DevInst node) const {
  const auto found = nodes_.find(node);
  return found == nodes_.end() ? nullptr : &found->second;
}

}  // namespace virtualhub
