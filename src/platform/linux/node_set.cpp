// Device nodes of an interface class.
#include <array>
#include <cerrno>
#include <vector>

#include "platform/linux/hid_path.h"
#include "platform/linux/node_registry.h"
#include "platform/linux/sysfs.h"
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

Status FindNode(const NodeSet& set, std::uint32_t index, DevInst& node) {
  if (!set) return InvalidHandle();
  if (index >= set->nodes.size()) return Status::Failure(ENOENT);
  node = set->nodes[index];
  return {};
}

}  // namespace

Status OpenNodeSet(const Guid& interfaceClass, NodeSet& set) {
  set.reset();
  std::vector<std::string> folders;
  if (IsHidClass(interfaceClass)) {
    if (Status status = CheckDescriptors(); !status) return status;
    if (Status status = ListHidrawFolders(folders); !status) return status;
  }
  CNodeRegistry& registry = CNodeRegistry::Instance();
  registry.DropAbsent();
  NodeSet found(new NodeSetData);
  for (const std::string& folder : folders) {
    DevInst node = 0;
    const Status status = registry.NumberOf(folder, &ReadHidNode, node);
    if (status) {
      found->nodes.push_back(node);
    } else if (status.code != ENODEV) {
      return status;
    }  // else it has left since the folders were listed
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
