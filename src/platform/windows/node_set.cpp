// Device nodes of an interface class, through the device-installation services.
#include "platform/windows/hid_services.h"

// After the general Windows header.
#include <setupapi.h>

#include <cstddef>
#include <vector>

namespace qzhid::platform {

/// Keeps what was found last, so that the system is asked only once.
struct NodeSetData {
  HDEVINFO handle;
  GUID interfaceClass;
  std::uint32_t index = 0;
  SP_DEVINFO_DATA node = {};                     // at the index; without size: none yet
  SP_DEVICE_INTERFACE_DATA firstInterface = {};  // of the node; without size: not asked for yet
};

void NodeSetCloser::operator()(NodeSetData* data) const noexcept {
  if (data->handle != INVALID_HANDLE_VALUE) SetupDiDestroyDeviceInfoList(data->handle);
  delete data;
}

namespace {

GUID ToSystem(const Guid& guid) {
  GUID system = {guid.data1, guid.data2, guid.data3, {}};
  for (std::size_t i = 0; i < sizeof(guid.data4); ++i) system.Data4[i] = guid.data4[i];
  return system;
}

bool FindNode(NodeSetData& set, std::uint32_t index) {
  SP_DEVINFO_DATA node = {};
  node.cbSize = sizeof(node);
  if (!SetupDiEnumDeviceInfo(set.handle, index, &node)) return false;
  set.index = index;
  set.node = node;
  set.firstInterface = {};
  return true;
}

bool FindInterface(NodeSetData& set, std::uint32_t index) {
  const bool isKnown = set.node.cbSize != 0 && set.index == index;
  if (!isKnown && !FindNode(set, index)) return false;
  if (set.firstInterface.cbSize != 0) return true;
  SP_DEVICE_INTERFACE_DATA found = {};
  found.cbSize = sizeof(found);
  if (!SetupDiEnumDeviceInterfaces(set.handle, &set.node, &set.interfaceClass, 0, &found)) {
    return false;
  }
  set.firstInterface = found;
  return true;
}

}  // namespace

Guid HidClassGuid() {
  GUID system;
  HidD_GetHidGuid(&system);
  Guid guid{static_cast<std::uint32_t>(system.Data1), system.Data2, system.Data3, {}};
  for (std::size_t i = 0; i < sizeof(guid.data4); ++i) guid.data4[i] = system.Data4[i];
  return guid;
}

Status OpenNodeSet(const Guid& interfaceClass, NodeSet& set) {
  set.reset(new NodeSetData{INVALID_HANDLE_VALUE, ToSystem(interfaceClass)});
  set->handle = SetupDiGetClassDevsW(&set->interfaceClass, nullptr, nullptr,
                                     DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  if (set->handle != INVALID_HANDLE_VALUE) return {};
  Status failure = LastFailure();
  set.reset();
  return failure;
}

Status EnumNode(const NodeSet& set, std::uint32_t index, DevInst& devInst) {
  if (!set) return InvalidHandle();
  if (!FindNode(*set, index)) return LastFailure();
  devInst = set->node.DevInst;
  return {};
}

Status FirstInterface(const NodeSet& set, std::uint32_t index, DeviceInterface& found) {
  if (!set) return InvalidHandle();
  if (!FindInterface(*set, index)) return LastFailure();
  found = {index, static_cast<DevInst>(set->node.DevInst)};
  return {};
}

Status InterfacePath(const NodeSet& set, const DeviceInterface& deviceInterface,
                     std::wstring& path) {
  if (!set) return InvalidHandle();
  if (!FindInterface(*set, deviceInterface.node)) return LastFailure();
  SP_DEVICE_INTERFACE_DATA& data = set->firstInterface;
  DWORD bytes = 0;
  // Without a buffer this call fails; if nothing else was wrong, it has returned the size.
  SetupDiGetDeviceInterfaceDetailW(set->handle, &data, nullptr, 0, &bytes, nullptr);
  if (bytes < sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W)) return LastFailure();
  std::vector<std::max_align_t> room(bytes / sizeof(std::max_align_t) + 1);
  auto* const detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(room.data());
  detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W);
  if (!SetupDiGetDeviceInterfaceDetailW(set->handle, &data, detail, bytes, nullptr, nullptr)) {
    return LastFailure();
  }
  path = detail->DevicePath;
  return {};
}

Status CloseNodeSet(NodeSet& set) {
  if (!set) return InvalidHandle();
  const bool isClosed = SetupDiDestroyDeviceInfoList(set->handle) != FALSE;
  Status status = isClosed ? Status{} : LastFailure();
  set->handle = INVALID_HANDLE_VALUE;
  set.reset();
  return status;
}

}  // namespace qzhid::platform
