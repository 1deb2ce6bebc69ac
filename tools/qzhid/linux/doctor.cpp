#include "qzhid/doctor.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace qzhid {

namespace {

namespace fs = std::filesystem;
constexpr const char* kVendor = "2e7c";
constexpr const char* kRule = "70-qzhidapi.rules";
constexpr const char* kQuirk = "qzhidapi-usbhid.conf";

std::string FirstLine(const fs::path& file) {
  std::ifstream stream(file);
  std::string line;
  std::getline(stream, line);
  return line;
}

// What is in a folder; nothing when it cannot be read.
std::vector<fs::path> Entries(const fs::path& folder) {
  std::error_code error;
  std::vector<fs::path> entries;
  for (const auto& entry : fs::directory_iterator(folder, error)) entries.push_back(entry.path());
  return entries;
}

Finding ExamineKernel() {
  constexpr int kMajor = 5, kMinor = 11;
  utsname system{};
  uname(&system);
  int major = 0, minor = 0;
  const bool isKnown = std::sscanf(system.release, "%d.%d", &major, &minor) == 2;
  const std::string what = std::string("the kernel is ") + system.release;
  if (isKnown && (major > kMajor || (major == kMajor && minor >= kMinor))) return {true, what, ""};
  return {false, what, "update it to 5.11 or newer: an older one cannot send requests to hubs"};
}

Finding ExamineDriver() {
  if (fs::exists("/sys/class/hidraw")) return {true, "the hidraw driver is there", ""};
  return {false, "the kernel has no hidraw driver",
          "load it ('sudo modprobe hid'), or use a kernel with CONFIG_HIDRAW"};
}

bool IsRuleInstalled() {
  constexpr std::array kFolders{"/etc/udev/rules.d", "/run/udev/rules.d", "/usr/lib/udev/rules.d",
                                "/usr/local/lib/udev/rules.d", "/lib/udev/rules.d"};
  for (const char* folder : kFolders) {
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

// The HID nodes below a USB device.
std::vector<std::string> NodesOf(const fs::path& device) {
  std::vector<std::string> nodes;
  std::error_code error;
  const std::string folder = fs::canonical(device, error).string() + '/';
  for (const fs::path& node : Entries("/sys/class/hidraw")) {
    if (fs::canonical(node, error).string().starts_with(folder)) {
      nodes.push_back("/dev/" + node.filename().string());
    }
  }
  return nodes;
}

// Whether the kernel's list of quirks, such as "0x2E7C:0x0818:0x40000,(null)", keeps output reports
// for the device away from its endpoint.
bool IsQuirkSet(const fs::path& device) {
  constexpr unsigned kNoReportsToEndpoint = 0x40000;
  const unsigned long vendor = std::stoul("0" + FirstLine(device / "idVendor"), nullptr, 16);
  const unsigned long product = std::stoul("0" + FirstLine(device / "idProduct"), nullptr, 16);
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
Finding ExamineEndpoint(const fs::path& device, const std::string& hub) {
  const std::string what = hub + " has an interrupt OUT endpoint";
  if (IsQuirkSet(device)) return {true, what + ", which the kernel leaves alone", ""};
  return {true, what + ", to which the kernel sends requests",
          std::string("if they fail, copy ") + kQuirk + " to /etc/modprobe.d and start again"};
}

void ExamineDevice(const fs::path& device, std::vector<Finding>& findings) {
  if (FirstLine(device / "idVendor") != kVendor) return;
  const std::string hub = "USB device " + device.filename().string() + " (" + kVendor + ":" +
                          FirstLine(device / "idProduct") + ")";
  const std::vector<std::string> nodes = NodesOf(device);
  if (nodes.empty()) {
    findings.push_back({false, hub + " has no hidraw node",
                        "return it to the kernel's usbhid driver: plug it in again, and end "
                        "virtual machines and programs that use it"});
  }
  for (const std::string& node : nodes) {
    std::string name = hub;
    name.append(" at ").append(node);
    findings.push_back(ExamineNode(node, name));
    if (HasInterruptOut("/sys/class/hidraw" / fs::path(node).filename())) {
      findings.push_back(ExamineEndpoint(device, name));
    }
  }
}

}  // namespace

std::vector<Finding> ExamineSystem() {
  std::vector<Finding> findings = {ExamineKernel(), ExamineDriver(), ExamineRule()};
  for (const fs::path& device : Entries("/sys/bus/usb/devices")) ExamineDevice(device, findings);
  return findings;
}

}  // namespace qzhid
