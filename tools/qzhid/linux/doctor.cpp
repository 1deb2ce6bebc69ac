#include "qzhid/doctor.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <sstream>

#include "qzhid/linux/udev_rules.h"
#include "qzhid/linux/usb_devices.h"
#include "qzhid/state.h"

namespace qzhid {

namespace {

namespace fs = std::filesystem;
constexpr const char* kRule = "70-qzhidapi.rules";
constexpr const char* kQuirk = "qzhidapi-usbhid.conf";

Finding ExamineKernel() {
  constexpr int kMajor = 5, kMinor = 11;
  utsname system{};
  uname(&system);
  int major = 0, minor = 0;
  const bool isKnown = std::sscanf(system.release, "%d.%d", &major, &minor) == 2;
  const std::string what = std::string("the kernel is ") + system.release;
  if (isKnown && (major > kMajor || (major == kMajor && minor >= kMinor))) return {true, what, ""};
  return {false, what,
          "update the kernel to 5.11 or newer: an older one cannot send requests to hubs"};
}

Finding ExamineDriver() {
  if (fs::exists("/sys/class/hidraw")) return {true, "the hidraw driver is there", ""};
  return {false, "the kernel has no hidraw driver",
          "load it ('sudo modprobe hid'), or use a kernel with CONFIG_HIDRAW"};
}

bool IsRuleInstalled() {
  for (const char* folder : kRuleFolders) {
    if (fs::exists(fs::path(folder) / kRule)) return true;
  }
  return false;
}

// Hubs can be opened by other means, so a missing rule is not a problem by itself.
Finding ExamineRule() {
  const std::string what = std::string("the udev rule ") + kRule + " is ";
  if (IsRuleInstalled()) return {true, what + "installed", ""};
  return {true, what + "not installed", "install it so that users other than root can open hubs"};
}

Finding ExamineNode(const std::string& file, const std::string& hub) {
  if (access(file.c_str(), R_OK | W_OK) == 0) return {true, hub + " can be opened", ""};
  if (!fs::exists(file)) {
    return {false, hub + " has no device node", "run udev, or pass the node into the container"};
  }
  if (!IsRuleInstalled()) {
    return {false, "there is no permission for " + hub,
            std::string("install the udev rule ") + kRule + ", then plug the hub in again"};
  }
  return {false, "there is no permission for " + hub + " although the udev rule is installed",
          "plug the hub in again, or log in locally: the rule only covers local users"};
}

// Whether the kernel's list of quirks, such as "0x2E7C:0x0818:0x40000,(null)", keeps output reports
// for the device away from its endpoint.
bool IsQuirkSet(const UsbDevice& device) {
  constexpr unsigned kNoReportsToEndpoint = 0x40000;
  const unsigned long vendor = std::stoul("0" + device.vid, nullptr, 16);
  const unsigned long product = std::stoul("0" + device.pid, nullptr, 16);
  std::istringstream quirks(FirstLine("/sys/module/usbhid/parameters/quirks"));
  for (std::string quirk; std::getline(quirks, quirk, ',');) {
    unsigned vid = 0, pid = 0, flags = 0;
    const bool isRead = std::sscanf(quirk.c_str(), "%x:%x:%x", &vid, &pid, &flags) == 3;
    if (isRead && vid == vendor && pid == product && (flags & kNoReportsToEndpoint) != 0)
      return true;
  }
  return false;
}

bool HasInterruptOut(const fs::path& node) {
  // Of the HID device's parent, the interface.
  for (const fs::path& entry : Entries(node / "device" / "..")) {
    if (entry.filename().string().starts_with("ep_") && FirstLine(entry / "type") == "Interrupt" &&
        FirstLine(entry / "direction") == "out") {
      return true;
    }
  }
  return false;
}

// Hubs may take reports there, so the endpoint is not a problem by itself.
Finding ExamineEndpoint(const UsbDevice& device, const std::string& hub) {
  const std::string what = hub + " has an interrupt OUT endpoint";
  if (IsQuirkSet(device)) return {true, what + ", which the kernel leaves alone", ""};
  return {true, what + ", to which the kernel sends requests",
          std::string("if they fail, copy ") + kQuirk + " to /etc/modprobe.d and start again"};
}

void ExamineDevice(const UsbDevice& device, std::vector<Finding>& findings) {
  const std::string hub = "USB device " + device.folder.filename().string() + " (" + device.vid +
                          ":" + device.pid + ")";
  if (device.nodes.empty()) {
    findings.push_back({false, hub + " has no hidraw node", kFindNode});
  }
  for (const std::string& node : device.nodes) {
    std::string name = hub;
    name.append(" at ").append(node);
    findings.push_back(ExamineNode(node, name));
    if (HasInterruptOut("/sys/class/hidraw" / fs::path(node).filename())) {
      findings.push_back(ExamineEndpoint(device, name));
    }
  }
}

}  // namespace

std::string SystemRemedy() { return ExamineKernel().remedy; }

std::vector<Finding> ExamineSystem() {
  std::vector<Finding> findings = {ExamineKernel(), ExamineDriver(), ExamineRule()};
  for (const UsbDevice& device : UsbDevices()) ExamineDevice(device, findings);
  return findings;
}

}  // namespace qzhid
