#include "qzhid/linux/usb_devices.h"

#include <algorithm>
#include <fstream>

namespace qzhid {

namespace {

namespace fs = std::filesystem;
constexpr const char* kVendor = "2e7c";
constexpr const char* kHidClass = "03";

bool HasHidInterface(const fs::path& device) {
  const std::vector<fs::path> entries = Entries(device);
  return std::any_of(entries.begin(), entries.end(), [](const fs::path& entry) {
    return FirstLine(entry / "bInterfaceClass") == kHidClass;
  });
}

std::vector<std::string> NodesOf(const fs::path& device) {
  std::vector<std::string> nodes;
  std::error_code error;
  for (const fs::path& node : Entries("/sys/class/hidraw")) {
    if (fs::canonical(node, error).string().starts_with(device.string() + '/')) {
      nodes.push_back("/dev/" + node.filename().string());
    }
  }
  return nodes;
}

}  // namespace

std::vector<fs::path> Entries(const fs::path& folder) {
  std::error_code error;
  std::vector<fs::path> entries;
  for (const auto& entry : fs::directory_iterator(folder, error)) entries.push_back(entry.path());
  std::sort(entries.begin(), entries.end());
  return entries;
}

std::string FirstLine(const fs::path& file) {
  std::ifstream stream(file);
  std::string line;
  std::getline(stream, line);
  return line;
}

std::vector<UsbDevice> UsbDevices() {
  std::vector<UsbDevice> devices;
  std::error_code error;
  for (const fs::path& entry : Entries("/sys/bus/usb/devices")) {
    const fs::path folder = fs::canonical(entry, error);
    if (error || FirstLine(folder / "idVendor") != kVendor || !HasHidInterface(folder)) continue;
    devices.push_back({folder, kVendor, FirstLine(folder / "idProduct"), NodesOf(folder)});
  }
  return devices;
}

}  // namespace qzhid
