// Device nodes of an interface class.
#include <vector>

#include "platform/platform.h"
#include "platform/system/hid_class.h"
#include "platform/virtual/error_codes.h"
#include "platform/virtual/machine.h"
#include "platform/virtual/open_handle.h"

namespace qzhid::platform {

using virtualhub::Error;
using virtualhub::Result;
using virtualhub::Service;
using View = virtualhub::Machine::View;

struct NodeSetData {
  COpenHandle handle;
  std::shared_ptr<const std::vector<DevInst>> nodes;
};

void NodeSetCloser::operator()(NodeSetData* data) const noexcept { delete data; }

namespace {

// One call for the node at `index` of a set, which `body` works on.
template <typename Body>
Status CallForNode(const NodeSet& set, Service service, std::uint32_t index, Body body) {
  if (!set) return InvalidHandle();
  const DevInst node = index < set->nodes->size() ? (*set->nodes)[index] : 0;
  return ToStatus(set->handle.machine().Call(service, node, index, [&](const View& view) -> Result {
    return node == 0 ? Result{Error::NoMoreNodes} : body(view, node);
  }));
}

}  // namespace

Status OpenNodeSet(const Guid& interfaceClass, NodeSet& set) {
  set.reset();
  const auto machine = HoldMachine();
  auto nodes = std::make_shared<const std::vector<DevInst>>();
  const Result result = machine->Call(Service::OpenNodeSet, 0, 0, [&](const View& view) -> Result {
    if (IsHidClass(interfaceClass)) nodes = view.HidNodes();
    return {};
  });
  if (result.ok()) {
    set.reset(new NodeSetData{{machine, virtualhub::HandleKind::NodeSet}, std::move(nodes)});
  }
  return ToStatus(result);
}

Status EnumNode(const NodeSet& set, std::uint32_t index, DevInst& devInst) {
  return CallForNode(set, Service::EnumNode, index, [&](const View&, DevInst node) -> Result {
    devInst = node;
    return {};
  });
}

Status FirstInterface(const NodeSet& set, std::uint32_t index, DeviceInterface& found) {
  return CallForNode(set, Service::FirstInterface, index,
                     [&](const View& view, DevInst node) -> Result {
                       if (view.PresentHid(node).stay == 0) return {Error::NoMoreNodes};
                       found = {index, node};
                       return {};
                     });
}

Status InterfacePath(const NodeSet& set, const DeviceInterface& deviceInterface,
                     std::wstring& path) {
  return CallForNode(set, Service::InterfacePath, deviceInterface.node,
                     [&](const View& view, DevInst node) -> Result {
                       if (view.PresentHid(node).stay == 0) return {Error::NoSuchNode};
                       path = L"virtualhub:" + std::to_wstring(node);
                       return {};
                     });
}

Status CloseNodeSet(NodeSet& set) {
  if (!set) return InvalidHandle();
  const Result result = set->handle.machine().Call(Service::CloseNodeSet, 0, 0,
                                                   [](const View&) -> Result { return {}; });
  set.reset();
  return ToStatus(result);
}

}  // namespace qzhid::platform
