// The device-tree part of cfgmgr32.dll, which setupapi.dll has as well, on the machine.
#include "windows/kernel_doubles.h"

// After the general Windows header.
#include <cfgmgr32.h>

#include <algorithm>
#include <cstring>

namespace platform = qzhid::platform;
using enum platform::TextProperty;

namespace {

constexpr GUID kDeviceProperties = {
    0xA45C254E, 0xDF1C, 0x4EFD, {0x80, 0x20, 0x67, 0xD1, 0x46, 0xA8, 0x50, 0xE0}};

CONFIGRET ConfigReturn(const platform::Status& status) { return status ? CR_SUCCESS : status.code; }

template <class Unit>
CONFIGRET ReadId(platform::Status (*read)(platform::DevInst, std::size_t, std::basic_string<Unit>&),
                 DEVINST node, Unit* buffer, ULONG capacity) {
  std::basic_string<Unit> id;
  const platform::Status status = read(node, capacity, id);
  if (status) std::copy_n(id.c_str(), id.size() + 1, buffer);
  return ConfigReturn(status);
}

CONFIGRET ReadAddress(DEVINST node, PBYTE buffer, PULONG bytes) {
  std::uint32_t address = 0;
  if (*bytes < sizeof(address)) return CR_BUFFER_SMALL;
  const platform::Status status = platform::GetAddressProperty(node, address);
  std::memcpy(buffer, &address, sizeof(address));
  return ConfigReturn(status);
}

CONFIGRET ReadText(DEVINST node, platform::TextProperty property, PBYTE buffer, PULONG bytes) {
  std::wstring text;
  const platform::Status status = platform::GetTextProperty(node, property, *bytes, text);
  if (!status) return ConfigReturn(status);
  *bytes = static_cast<ULONG>(text.size() * sizeof(wchar_t));
  std::memcpy(buffer, text.data(), *bytes);
  return CR_SUCCESS;
}

}  // namespace

extern "C" {

CONFIGRET WINAPI CM_Get_Parent(PDEVINST parent, DEVINST node, ULONG) {
  platform::DevInst found = 0;
  const platform::Status status = platform::GetParent(node, found);
  *parent = found;
  return ConfigReturn(status);
}

CONFIGRET WINAPI CM_Get_Device_IDA(DEVINST node, PSTR buffer, ULONG capacity, ULONG) {
  return ReadId<char>(&platform::GetDeviceIdA, node, buffer, capacity);
}

CONFIGRET WINAPI CM_Get_Device_IDW(DEVINST node, PWSTR buffer, ULONG capacity, ULONG) {
  return ReadId<wchar_t>(&platform::GetDeviceIdW, node, buffer, capacity);
}

CONFIGRET WINAPI CM_Get_DevNode_PropertyW(DEVINST node, const DEVPROPKEY* key, DEVPROPTYPE*,
                                          PBYTE buffer, PULONG bytes, ULONG) {
  if (std::memcmp(&key->fmtid, &kDeviceProperties, sizeof(GUID)) != 0) return CR_NO_SUCH_VALUE;
  switch (key->pid) {
    case 3:
      return ReadText(node, HardwareIds, buffer, bytes);
    case 15:
      return ReadText(node, LocationInfo, buffer, bytes);
    case 30:
      return ReadAddress(node, buffer, bytes);
    case 37:
      return ReadText(node, LocationPaths, buffer, bytes);
    default:
      return CR_NO_SUCH_VALUE;
  }
}

}  // extern "C"
