// The kernel's texts: names of folders, attributes of devices, and what a system says of itself.
#include <fcntl.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "fuzz/fuzz.h"
#include "platform/linux/hid_path.h"
#include "platform/linux/host_facts.h"
#include "platform/linux/node_facts.h"
#include "platform/linux/sysfs_names.h"

using namespace qzhid::platform;
using namespace qzhid::fuzz;

namespace {

/// A bus with one device and its hidraw node, in a folder that is removed again.
class Bus {
 public:
  Bus() : folder_("/dev/shm/qz-fuzz-" + std::to_string(getpid())) {
    std::filesystem::create_directories(Hidraw());
  }
  ~Bus() { std::filesystem::remove_all(folder_); }
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;

  std::filesystem::path Root() const { return folder_ / "usb1"; }
  std::filesystem::path Device() const { return Root() / "1-3"; }
  std::filesystem::path Hidraw() const {
    return Device() / "1-3:1.0" / "0003:2E7C:0818.0001" / "hidraw" / "hidraw0";
  }

  /// Gives an attribute that contents; the file is opened once.
  void Write(const std::filesystem::path& file, const std::string& text) {
    const auto [found, isNew] = files_.try_emplace(file);
    if (isNew) found->second = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    Require(ftruncate(found->second, 0) == 0 && pwrite(found->second, text.data(), text.size(),
                                                       0) == static_cast<ssize_t>(text.size()),
            "attributes can be written");
  }

 private:
  const std::filesystem::path folder_;
  std::map<std::filesystem::path, int> files_;
};

/// A good value mostly, so that one bad one is met by itself.
std::string Attribute(Input& input, const char* usual) {
  return input.Byte() % 4 == 3 ? input.Text() : usual;
}

void CheckNodes(Input& input) {
  static Bus bus;
  bus.Write(bus.Root() / "busnum", Attribute(input, "1\n"));
  bus.Write(bus.Root() / "devnum", Attribute(input, "1\n"));
  bus.Write(bus.Root() / "speed", Attribute(input, "5000\n"));
  const std::pair<const char*, const char*> attributes[] = {
      {"idVendor", "2e7c\n"}, {"idProduct", "0818\n"}, {"bcdDevice", "0100\n"},   {"busnum", "1\n"},
      {"devnum", "2\n"},      {"serial", "A1\n"},      {"bNumInterfaces", " 1\n"}};
  for (const auto& [name, usual] : attributes) {
    bus.Write(bus.Device() / name, Attribute(input, usual));
  }
  NodeFacts node;
  if (ReadHidNode(bus.Hidraw(), node)) {
    Require(node.deviceId.starts_with("HID\\VID_") && node.parentFolder == bus.Device(),
            "a HID node has ids and a parent");
  }
  if (ReadUsbNode(bus.Device(), node)) {
    Require(node.deviceId.starts_with("USB\\VID_") && node.port == 3 &&
                !node.locationInfo.empty() && node.deviceId.find("ROOT") == std::string::npos,
            "a USB node has an id and a place");
  }
  ReadUsbNode(bus.Root(), node);
}

void CheckNames(const std::string& text) {
  if (const auto place = ParseUsbFolder(text)) {
    Require(
        LocationPath(*place, true)
            .ends_with(place->ports.empty() ? "USBROOT(1)"
                                            : "#USB(" + std::to_string(place->ports.back()) + ")"),
        "a location path ends with the port");
  }
  if (const auto place = ParseHidrawFolder(text)) {
    Require(place->usbFolder.empty() == place->usbInterface.empty(), "an interface has a device");
  }
  std::string file;
  DevInst node = 0;
  const std::wstring path(text.begin(), text.end());
  if (ParseHidPath(path, file, node)) {
    std::string again;
    DevInst sameNode = 0;
    Require(ParseHidPath(HidPath(file, node), again, sameNode) && sameNode == node,
            "an interface path can be read back");
  }
  OsReleaseValue(text, "PRETTY_NAME");
  ParseKernelRelease(text);
  ParseMachine(text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  if (input.Flag()) {
    CheckNodes(input);
  } else {
    CheckNames({reinterpret_cast<const char*>(data), size});
  }
  return 0;
}
