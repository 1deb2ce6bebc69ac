// Device nodes of an interface class, through the device-installation services.
#include "platform/windows/hid_services.h"

// After the general Windows header.
#include <setupapi.h>

#include <cstddef>
#include <vector>

namespace qzhid::platform {

struct NodeSetData {
  HDEVINFO handle;
  GUID interfaceClass;
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

bool FindNode(const NodeSet& set, std::uint32_t index, SP_DEVINFO_DATA& node) {
  node = {};
  node.cbSize = sizeof(node);
  return SetupDiEnumDeviceInfo(set->handle, index, &node) != FALSE;
}

bool FindInterface(const NodeSet& set, std::uint32_t index, SP_DEVINFO_DATA& node,
                   SP_DEVICE_INTERFACE_DATA& found) {
  found = {};
  found.cbSize = sizeof(found);
  return FindNode(set, index, node) &&
         SetupDiEnumDeviceInterfaces(set->handle, &node, &set->interfaceClass, 0, &found) != FALSE;
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
  SP_DEVINFO_DATA node;
  if (!FindNode(set, index, node)) return LastFailure();
  devInst = node.DevInst;
  return {};
}

Status FirstInterface(const NodeSet& set, std::uint32_t index, DeviceInterface& found) {
  if (!set) return InvalidHandle();
  SP_DEVINFO_DATA node;
  SP_DEVICE_INTERFACE_DATA data;
  if (!FindInterface(set, index, node, data)) return LastFailure();
  found = {index, static_cast<DevInst>(node.DevInst)};
  return {};
}

Status InterfacePath(const NodeSet& set, const DeviceInterface& deviceInterface,
                     std::wstring& path) {
  if (!set) return InvalidHandle();
  SP_DEVINFO_DATA node;
  SP_DEVICE_INTERFACE_DATA data;
  if (!FindInterface(set, deviceInterface.node, node, data)) return LastFailure();
  DWORD bytes = 0;
  // Without a buffer this call fails; it has told the size when that is all that was wrong.
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
