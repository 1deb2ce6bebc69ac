#include "qzhid/attached.h"

// The general Windows header comes first.
#include <windows.h>

#include <cfgmgr32.h>
#include <initguid.h>
#include <setupapi.h>

#include <devpkey.h>

#include <string_view>

#include "qzhid/location.h"

namespace qzhid {

namespace {

constexpr std::string_view kVendorId = "VID_2E7C", kProductId = "PID_", kHidClass = "USB\\CLASS_03";
constexpr std::size_t kIdDigits = 4;

// A list of texts, or its first one; ids and locations are ASCII.
std::string Property(HDEVINFO devices, SP_DEVINFO_DATA& device, const DEVPROPKEY& key) {
  std::wstring wide(0x1000, L'\0');
  DEVPROPTYPE type = 0;
  DWORD size = 0;
  const BOOL isRead =
      SetupDiGetDevicePropertyW(devices, &device, &key, &type, reinterpret_cast<BYTE*>(wide.data()),
                                static_cast<DWORD>(wide.size() * sizeof(wchar_t)), &size, 0);
  std::string text;
  for (std::size_t i = 0; isRead != 0 && i < size / sizeof(wchar_t); ++i) {
    text += wide[i] < 0x80 ? static_cast<char>(wide[i]) : '?';
  }
  return text;
}

std::string FirstText(const std::string& list) { return list.substr(0, list.find('\0')); }

}  // namespace

std::vector<AttachedHub> AttachedHubs() {
  std::vector<AttachedHub> hubs;
  HDEVINFO devices =
      SetupDiGetClassDevsA(nullptr, "USB", nullptr, DIGCF_ALLCLASSES | DIGCF_PRESENT);
  if (devices == INVALID_HANDLE_VALUE) return hubs;
  SP_DEVINFO_DATA device{};
  device.cbSize = sizeof(device);
  for (DWORD i = 0; SetupDiEnumDeviceInfo(devices, i, &device) != 0; ++i) {
    const std::string id = Upper(FirstText(Property(devices, device, DEVPKEY_Device_HardwareIds)));
    const std::string classes = Upper(Property(devices, device, DEVPKEY_Device_CompatibleIds));
    const std::size_t product = id.find(kProductId);
    if (id.find(kVendorId) == std::string::npos || product == std::string::npos ||
        classes.find(kHidClass) == std::string::npos) {
      continue;
    }
    DEVINST child = 0;
    hubs.push_back({std::string(kVendorId.substr(kVendorId.size() - kIdDigits)),
                    id.substr(product + kProductId.size(), kIdDigits),
                    FirstText(Property(devices, device, DEVPKEY_Device_LocationPaths)),
                    CM_Get_Child(&child, device.DevInst, 0) == CR_SUCCESS});
  }
  SetupDiDestroyDeviceInfoList(devices);
  return hubs;
}

}  // namespace qzhid
