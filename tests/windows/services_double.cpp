// The services of hid.dll, setupapi.dll and cfgmgr32.dll, on the machine; each double has them all.
#include "windows/kernel_doubles.h"

// After the general Windows header.
extern "C" {
#include <hidsdi.h>
}
#include <cfgmgr32.h>
#include <setupapi.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>

using enum platform::TextProperty;
using platform::Status;

namespace {

// The library, or the program with its backend, is on the machine as soon as it is loaded.
const bool g_isInUse = [] {
  const HMODULE library = GetModuleHandleW(L"QzHidAPI.dll");
  UseKernelDoubles(library != nullptr ? library : GetModuleHandleW(nullptr));
  return true;
}();

BOOL Refuse(DWORD code) { return Answer(Status::Failure(code)); }

/// What a service of the configuration manager returns; copies what was read.
CONFIGRET Give(const Status& status, const void* value, std::size_t size, void* buffer) {
  if (status) std::memcpy(buffer, value, size);
  return status ? CR_SUCCESS : status.code;
}

platform::PreparsedData* FromOpaque(PHIDP_PREPARSED_DATA data) {
  return reinterpret_cast<platform::PreparsedData*>(data);
}
const platform::NodeSet& SetOf(HDEVINFO set) { return *static_cast<platform::NodeSet*>(set); }

}  // namespace

extern "C" {

void NTAPI HidD_GetHidGuid(LPGUID guid) { *guid = std::bit_cast<GUID>(platform::HidClassGuid()); }

BOOLEAN NTAPI HidD_GetPreparsedData(HANDLE handle, PHIDP_PREPARSED_DATA* data) {
  auto preparsed = std::make_unique<platform::PreparsedData>();
  const Status status = GetPreparsedData(DeviceOf(handle), *preparsed);
  if (status) *data = reinterpret_cast<PHIDP_PREPARSED_DATA>(preparsed.release());
  return Answer(status);
}

BOOLEAN NTAPI HidD_FreePreparsedData(PHIDP_PREPARSED_DATA data) {
  delete FromOpaque(data);
  return TRUE;
}

NTSTATUS NTAPI HidP_GetCaps(PHIDP_PREPARSED_DATA data, PHIDP_CAPS caps) {
  platform::HidCaps found;
  const Status status = GetCaps(*FromOpaque(data), found);
  if (!status) return static_cast<NTSTATUS>(status.code);
  *caps = {};
  caps->OutputReportByteLength = found.outputReportLength;
  caps->InputReportByteLength = found.inputReportLength;
  return HIDP_STATUS_SUCCESS;
}

BOOLEAN NTAPI HidD_GetIndexedString(HANDLE handle, ULONG index, PVOID buffer, ULONG bytes) {
  std::wstring text;
  const Status status = GetIndexedString(DeviceOf(handle), index, bytes, text);
  if (status) std::copy_n(text.c_str(), text.size() + 1, static_cast<wchar_t*>(buffer));
  return Answer(status);
}

BOOLEAN NTAPI HidD_SetOutputReport(HANDLE handle, PVOID report, ULONG length) {
  return Answer(SetOutputReport(DeviceOf(handle), static_cast<std::uint8_t*>(report), length));
}

BOOLEAN NTAPI HidD_GetInputReport(HANDLE handle, PVOID report, ULONG length) {
  return Answer(GetInputReport(DeviceOf(handle), static_cast<std::uint8_t*>(report), length));
}

HDEVINFO WINAPI SetupDiGetClassDevsW(const GUID* guid, PCWSTR enumerator, HWND window,
                                     DWORD flags) {
  const bool isRight = enumerator == nullptr && window == nullptr &&
                       flags == (DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  auto set = std::make_unique<platform::NodeSet>();
  const Status status = isRight ? OpenNodeSet(std::bit_cast<platform::Guid>(*guid), *set)
                                : Status::Failure(ERROR_INVALID_PARAMETER);
  return Answer(status) ? set.release() : INVALID_HANDLE_VALUE;
}

BOOL WINAPI SetupDiEnumDeviceInfo(HDEVINFO set, DWORD index, PSP_DEVINFO_DATA node) {
  if (node->cbSize != sizeof(*node)) return Refuse(ERROR_INVALID_USER_BUFFER);
  platform::DevInst instance = 0;
  const Status status = EnumNode(SetOf(set), index, instance);
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
  const Status status = FirstInterface(SetOf(set), number, first);
  found->Reserved = first.node;
  return Answer(status);
}

BOOL WINAPI SetupDiGetDeviceInterfaceDetailW(HDEVINFO set, PSP_DEVICE_INTERFACE_DATA found,
                                             PSP_DEVICE_INTERFACE_DETAIL_DATA_W detail, DWORD size,
                                             PDWORD required, PSP_DEVINFO_DATA) {
  std::wstring path;
  const platform::DeviceInterface wanted{static_cast<std::uint32_t>(found->Reserved), 0};
  const Status status = InterfacePath(SetOf(set), wanted, path);
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

CONFIGRET WINAPI CM_Get_Parent(PDEVINST parent, DEVINST node, ULONG) {
  platform::DevInst found = 0;
  const Status status = platform::GetParent(node, found);
  return Give(status, &found, sizeof(found), parent);
}

CONFIGRET WINAPI CM_Get_Device_IDA(DEVINST node, PSTR buffer, ULONG capacity, ULONG) {
  std::string id;
  const Status status = platform::GetDeviceIdA(node, capacity, id);
  return Give(status, id.c_str(), id.size() + 1, buffer);
}

CONFIGRET WINAPI CM_Get_Device_IDW(DEVINST node, PWSTR buffer, ULONG capacity, ULONG) {
  std::wstring id;
  const Status status = platform::GetDeviceIdW(node, capacity, id);
  return Give(status, id.c_str(), (id.size() + 1) * sizeof(wchar_t), buffer);
}

CONFIGRET WINAPI CM_Get_DevNode_PropertyW(DEVINST node, const DEVPROPKEY* key, DEVPROPTYPE*,
                                          PBYTE buffer, PULONG bytes, ULONG) {
  constexpr GUID kProperties = {
      0xA45C254E, 0xDF1C, 0x4EFD, {0x80, 0x20, 0x67, 0xD1, 0x46, 0xA8, 0x50, 0xE0}};
  if (std::memcmp(&key->fmtid, &kProperties, sizeof(GUID)) != 0) return CR_NO_SUCH_VALUE;
  if (key->pid == 30) {
    std::uint32_t address = 0;
    const Status status = platform::GetAddressProperty(node, address);
    return *bytes < sizeof(address) ? CR_BUFFER_SMALL
                                    : Give(status, &address, sizeof(address), buffer);
  }
  if (key->pid != 3 && key->pid != 15 && key->pid != 37) return CR_NO_SUCH_VALUE;
  std::wstring text;
  const Status status = platform::GetTextProperty(node,
                                                  key->pid == 3    ? HardwareIds
                                                  : key->pid == 15 ? LocationInfo
                                                                   : LocationPaths,
                                                  *bytes, text);
  *bytes = static_cast<ULONG>(text.size() * sizeof(wchar_t));
  return Give(status, text.data(), *bytes, buffer);
}

}  // extern "C"
