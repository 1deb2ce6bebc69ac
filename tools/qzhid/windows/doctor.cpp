#include "qzhid/doctor.h"

// The general Windows header comes first.
#include <windows.h>

#include <cfgmgr32.h>
#include <setupapi.h>

#include <array>
#include <string>

namespace qzhid {

namespace {

constexpr std::string_view kVendor = "VID_2E7C";

// The first hardware id of a device; empty when it cannot be read.
std::string HardwareId(HDEVINFO devices, SP_DEVINFO_DATA& device) {
  std::array<char, 1024> text{};
  if (SetupDiGetDeviceRegistryPropertyA(devices, &device, SPDRP_HARDWAREID, nullptr,
                                        reinterpret_cast<BYTE*>(text.data()), text.size() - 1,
                                        nullptr) == 0) {
    return "";
  }
  return text.data();
}

Finding ExamineDevice(const SP_DEVINFO_DATA& device, const std::string& name) {
  ULONG status = 0, problem = 0;
  if (CM_Get_DevNode_Status(&status, &problem, device.DevInst, 0) != CR_SUCCESS) {
    return {false, name + " is going away", "plug it in again"};
  }
  if ((status & DN_HAS_PROBLEM) == 0) return {true, name + " has its driver", ""};
  return {false, name + " has problem " + std::to_string(problem) + " with its driver",
          "see the device in the Device Manager, and plug it in again"};
}

}  // namespace

std::string SystemRemedy() { return ""; }

std::vector<Finding> ExamineSystem() {
  std::vector<Finding> findings;
  HDEVINFO devices =
      SetupDiGetClassDevsA(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES | DIGCF_PRESENT);
  if (devices == INVALID_HANDLE_VALUE) {
    return {{false, "the devices of this machine cannot be listed", "restart Windows"}};
  }
  SP_DEVINFO_DATA device{};
  device.cbSize = sizeof(device);
  for (DWORD i = 0; SetupDiEnumDeviceInfo(devices, i, &device) != 0; ++i) {
    const std::string id = HardwareId(devices, device);
    if (id.find(kVendor) != std::string::npos) {
      findings.push_back(ExamineDevice(device, "device " + id));
    }
  }
  SetupDiDestroyDeviceInfoList(devices);
  return findings;
}

}  // namespace qzhid
