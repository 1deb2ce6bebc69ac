// Device nodes of an interface class.
#include <algorithm>
#include <array>
#include <cerrno>
#include <vector>

#include "platform/linux/hid_path.h"
#include "platform/linux/node_registry.h"
#include "platform/system/hid_class.h"

namespace qzhid::platform {

struct NodeSetData {
  std::vector<DevInst> nodes;
};

void NodeSetCloser::operator()(NodeSetData* data) const noexcept { delete data; }

namespace {

/// Fails when fewer descriptors are left than it takes to open a device and identify it: a device
/// that cannot be opened would look like one that is not a hub.
Status CheckDescriptors() {
  std::array<CFileHandle, 6> files;  // hidraw, event, three folders in sysfs and an attribute
  for (CFileHandle& file : files) {
    file = OpenFile("/", O_PATH);
    if (!file) return LastFailure();
  }
  return {};
}

/// The number of the device that an entry stands for, or 0 if it has left since the entries were
/// listed.
Status ResolveEntry(const HidrawEntry& entry, DevInst& number) {
  CNodeRegistry& registry = CNodeRegistry::Instance();
  number = registry.NumberOfEntry(entry);
  if (number != 0) return {};
  const std::string folder = DeviceFolder(entry);
  if (folder.empty()) return {};
  const Status status = registry.NumberOf(folder, &ReadHidNode, number);
  if (status) registry.RememberEntry(entry, number);
  return status.code == ENODEV ? Status{} : status;
}

/// Forgets what has left if anything has come or left.
void ForgetAbsent(const std::vector<HidrawEntry>& entries) {
  CNodeRegistry& registry = CNodeRegistry::Instance();
  const bool isSame = entries.size() == registry.EntryCount() &&
                      std::all_of(entries.begin(), entries.end(), [&](const HidrawEntry& entry) {
                        return registry.NumberOfEntry(entry) != 0;
                      });
  if (!isSame) registry.DropAbsent();
}

Status FindNodes(std::vector<DevInst>& nodes) {
  std::vector<HidrawEntry> entries;
  if (Status status = CheckDescriptors(); !status) return status;
  if (Status status = ListHidraw(entries); !status) return status;
  ForgetAbsent(entries);
  for (const HidrawEntry& entry : entries) {
    DevInst node = 0;
    if (Status status = ResolveEntry(entry, node); !status) return status;
    if (node != 0) nodes.push_back(node);
  }
  return {};
}

Status FindNode(const NodeSet& set, std::uint32_t index, DevInst& node) {
  if (!set) return InvalidHandle();
  if (index >= set->nodes.size()) return Status::Failure(ENOENT);
  node = set->nodes[index];
  return {};
}

}  // namespace

Status OpenNodeSet(const Guid& interfaceClass, NodeSet& set) {
  set.reset();
  NodeSet found(new NodeSetData);
  if (IsHidClass(interfaceClass)) {
    if (Status status = FindNodes(found->nodes); !status) return status;
  }
  set = std::move(found);
  return {};
}

Status EnumNode(const NodeSet& set, std::uint32_t index, DevInst& devInst) {
  return FindNode(set, index, devInst);
}

Status FirstInterface(const NodeSet& set, std::uint32_t index, DeviceInterface& found) {
  DevInst node = 0;
  Status status = FindNode(set, index, node);
  if (status) found = {index, node};
  return status;
}

Status InterfacePath(const NodeSet& set, const DeviceInterface& deviceInterface,
                     std::wstring& path) {
  DevInst number = 0;
  if (Status status = FindNode(set, deviceInterface.node, number); !status) return status;
  const auto node = CNodeRegistry::Instance().Find(number);
  if (!node) return NoDevice();
  path = HidPath(node->deviceFile, number);
  return {};
}

Status CloseNodeSet(NodeSet& set) {
  if (!set) return InvalidHandle();
  set.reset();
  return {};
}

}  // namespace qzhid::platform
