// The device-installation part of setupapi.dll, on the machine.
#include "windows/kernel_doubles.h"

// After the general Windows header.
#include <setupapi.h>

#include <algorithm>
#include <cstddef>
#include <memory>

namespace platform = qzhid::platform;
using doubles::Answer;

namespace {

BOOL Refuse(DWORD code) { return Answer(platform::Status::Failure(code)); }

const platform::NodeSet& SetOf(HDEVINFO set) { return *static_cast<platform::NodeSet*>(set); }

}  // namespace

extern "C" {

HDEVINFO WINAPI SetupDiGetClassDevsW(const GUID* guid, PCWSTR enumerator, HWND window,
                                     DWORD flags) {
  if (enumerator != nullptr || window != nullptr ||
      flags != (DIGCF_PRESENT | DIGCF_DEVICEINTERFACE)) {
    Refuse(ERROR_INVALID_PARAMETER);
    return INVALID_HANDLE_VALUE;
  }
  platform::Guid wanted{static_cast<std::uint32_t>(guid->Data1), guid->Data2, guid->Data3, {}};
  std::copy(std::begin(guid->Data4), std::end(guid->Data4), wanted.data4);
  auto set = std::make_unique<platform::NodeSet>();
  return Answer(OpenNodeSet(wanted, *set)) ? set.release() : INVALID_HANDLE_VALUE;
}

BOOL WINAPI SetupDiEnumDeviceInfo(HDEVINFO set, DWORD index, PSP_DEVINFO_DATA node) {
  if (node->cbSize != sizeof(*node)) return Refuse(ERROR_INVALID_USER_BUFFER);
  platform::DevInst instance = 0;
  const platform::Status status = EnumNode(SetOf(set), index, instance);
  node->DevInst = instance;
  node->Reserved = index;
  return Answer(status);
}

BOOL WINAPI SetupDiEnumDeviceInterfaces(HDEVINFO set, PSP_DEVINFO_DATA node, const GUID*,
                                        DWORD index, PSP_DEVICE_INTERFACE_DATA found) {
  if (found->cbSize != sizeof(*found)) return Refuse(ERROR_INVALID_USER_BUFFER);
  if (index != 0) return Refuse(ERROR_NO_MORE_ITEMS);
  platform::DeviceInterface first;
  const auto number = static_cast<std::uint32_t>(node->Reserved);
  const platform::Status status = FirstInterface(SetOf(set), number, first);
  found->Reserved = first.node;
  return Answer(status);
}

BOOL WINAPI SetupDiGetDeviceInterfaceDetailW(HDEVINFO set, PSP_DEVICE_INTERFACE_DATA found,
                                             PSP_DEVICE_INTERFACE_DETAIL_DATA_W detail, DWORD size,
                                             PDWORD required, PSP_DEVINFO_DATA) {
  std::wstring path;
  const platform::DeviceInterface wanted{static_cast<std::uint32_t>(found->Reserved), 0};
  const platform::Status status = InterfacePath(SetOf(set), wanted, path);
  if (!status) return Answer(status);
  const std::size_t bytes =
      offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath) + (path.size() + 1) * sizeof(wchar_t);
  if (required != nullptr) *required = static_cast<DWORD>(bytes);
  if (size < bytes) return Refuse(ERROR_INSUFFICIENT_BUFFER);
  if (detail->cbSize != sizeof(*detail)) return Refuse(ERROR_INVALID_USER_BUFFER);
  std::copy_n(path.c_str(), path.size() + 1, detail->DevicePath);
  return TRUE;
}

BOOL WINAPI SetupDiDestroyDeviceInfoList(HDEVINFO set) {
  const std::unique_ptr<platform::NodeSet> owner(static_cast<platform::NodeSet*>(set));
  return Answer(CloseNodeSet(*owner));
}

}  // extern "C"
