#include "qzhid/bundle/evidence.h"

// The general Windows header comes first.
#include <windows.h>

#include <cfgmgr32.h>
#include <setupapi.h>

#include <array>
#include <cstdlib>
#include <functional>
#include <string>

namespace qzhid {

namespace {

using DeviceVisitor = std::function<void(HDEVINFO, SP_DEVINFO_DATA&)>;

/// Visits each USB and HID device that is present.
void VisitDevices(const DeviceVisitor& visit) {
  for (const char* enumerator : {"USB", "HID"}) {
    HDEVINFO devices =
        SetupDiGetClassDevsA(nullptr, enumerator, nullptr, DIGCF_ALLCLASSES | DIGCF_PRESENT);
    if (devices == INVALID_HANDLE_VALUE) continue;
    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof(device);
    for (DWORD i = 0; SetupDiEnumDeviceInfo(devices, i, &device) != 0; ++i) visit(devices, device);
    SetupDiDestroyDeviceInfoList(devices);
  }
}

std::string PropertyText(HDEVINFO devices, SP_DEVINFO_DATA& device, DWORD property) {
  std::array<char, 1024> text{};
  const BOOL isRead = SetupDiGetDeviceRegistryPropertyA(devices, &device, property, nullptr,
                                                        reinterpret_cast<BYTE*>(text.data()),
                                                        text.size() - 1, nullptr);
  return isRead != 0 ? text.data() : "";
}

std::string InstanceId(const SP_DEVINFO_DATA& device) {
  std::array<char, MAX_DEVICE_ID_LEN> text{};
  const bool isRead =
      CM_Get_Device_IDA(device.DevInst, text.data(), text.size() - 1, 0) == CR_SUCCESS;
  return isRead ? text.data() : "";
}

std::string TopologyText() {
  std::string text;
  VisitDevices([&text](HDEVINFO devices, SP_DEVINFO_DATA& device) {
    text += InstanceId(device) + '\n';
    text += "  hardware id " + PropertyText(devices, device, SPDRP_HARDWAREID) + '\n';
    text += "  location    " + PropertyText(devices, device, SPDRP_LOCATION_INFORMATION) + '\n';
    text += "  service     " + PropertyText(devices, device, SPDRP_SERVICE) + '\n';
    ULONG status = 0, problem = 0;
    if (CM_Get_DevNode_Status(&status, &problem, device.DevInst, 0) == CR_SUCCESS) {
      text += "  problem     " + std::to_string(problem) + '\n';
    }
  });
  return text;
}

std::string SystemText() {
  std::array<char, 256> name{}, build{};
  DWORD nameSize = name.size() - 1, buildSize = build.size() - 1;
  constexpr const char* kKey = "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
  RegGetValueA(HKEY_LOCAL_MACHINE, kKey, "ProductName", RRF_RT_REG_SZ, nullptr, name.data(),
               &nameSize);
  RegGetValueA(HKEY_LOCAL_MACHINE, kKey, "CurrentBuild", RRF_RT_REG_SZ, nullptr, build.data(),
               &buildSize);
  return std::string(name.data()) + ", build " + build.data() + '\n';
}

void AddEnvironment(std::vector<std::string>& list, const char* name) {
  const char* const value = std::getenv(name);
  if (value != nullptr && *value != '\0') list.emplace_back(value);
}

}  // namespace

std::vector<ArchiveEntry> CollectEvidence() {
  return {{"system.txt", SystemText()}, {"topology.txt", TopologyText()}};
}

PrivateNames CollectPrivateNames() {
  PrivateNames names;
  AddEnvironment(names.users, "USERNAME");
  AddEnvironment(names.homes, "USERPROFILE");
  AddEnvironment(names.hosts, "COMPUTERNAME");
  VisitDevices([&names](HDEVINFO, SP_DEVINFO_DATA& device) {
    const std::string id = InstanceId(device);
    const std::string last = id.substr(id.rfind('\\') + 1);
    // Windows marks ids of its own by an "&".
    if (!last.empty() && last.find('&') == std::string::npos) names.serials.push_back(last);
  });
  return names;
}

}  // namespace qzhid
