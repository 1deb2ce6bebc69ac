#include "qzhid/attached.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "qzhid/linux/usb_devices.h"
#include "qzhid/location.h"

namespace qzhid {

namespace {

namespace fs = std::filesystem;
constexpr int kSuperSpeed = 5000;  // Mbit/s: such a root hub is the controller's second one

// A component of the path to a host controller, in the notation of location paths.
std::string ControllerStep(std::string name) {
  unsigned domain = 0, bus = 0, device = 0, function = 0;
  char text[32];
  if (std::sscanf(name.c_str(), "pci%x:%x", &domain, &bus) == 2) {
    std::snprintf(text, sizeof(text), "PCIROOT(%X)#", domain << 8u | bus);
    return text;
  }
  if (std::sscanf(name.c_str(), "%x:%x:%x.%x", &domain, &bus, &device, &function) == 4) {
    std::snprintf(text, sizeof(text), "PCI(%02X%02X)#", device, function);
    return text;
  }
  // The kernel numbers such controllers in the order in which their drivers find them.
  constexpr std::string_view kNumbered = ".auto";
  if (name.ends_with(kNumbered)) {
    name.resize(name.size() - kNumbered.size());
    name.resize(std::min(name.rfind('.'), name.size()));
  }
  return "DEV(" + name + ")#";
}

// The folder of a device is ".../pci0000:00/0000:00:14.0/usb1/1-3/1-3.1".
std::string Location(const fs::path& device) {
  std::string location;
  fs::path folder = "/";
  for (const fs::path& part : device.relative_path()) {
    folder /= part;
    const std::string name = part.string();
    if (name.starts_with("usb") && fs::exists(folder / "speed")) break;
    if (name != "sys" && name != "devices") location += ControllerStep(name);
  }
  const std::string speed = FirstLine(folder / "speed");
  location += std::atoi(speed.c_str()) >= kSuperSpeed ? "USBROOT(1)" : "USBROOT(0)";
  const std::string name = device.filename().string();
  for (std::size_t at = name.find('-'); at != std::string::npos;) {
    const std::size_t end = name.find('.', at + 1);
    location += "#USB(" + name.substr(at + 1, end - at - 1) + ")";
    at = end;
  }
  return location;
}

}  // namespace

std::vector<AttachedHub> AttachedHubs() {
  std::vector<AttachedHub> hubs;
  for (const UsbDevice& device : UsbDevices()) {
    hubs.push_back(
        {Upper(device.vid), Upper(device.pid), Location(device.folder), !device.nodes.empty()});
  }
  return hubs;
}

}  // namespace qzhid
