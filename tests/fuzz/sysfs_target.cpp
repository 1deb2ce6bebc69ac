// The kernel's texts: names of folders, attributes of devices, and what a system says of itself.
#include <filesystem>
#include <fstream>

#include "fuzz/fuzz.h"
#include "platform/linux/hid_path.h"
#include "platform/linux/host_facts.h"
#include "platform/linux/node_facts.h"
#include "platform/linux/out_endpoint.h"
#include "platform/linux/sysfs_names.h"

using namespace qzhid::platform;
using namespace qzhid::fuzz;

/// A root hub, a device and its hidraw node, in a folder that is removed again.
struct Bus {
  Bus() { std::filesystem::create_directories(hidraw); }
  ~Bus() { std::filesystem::remove_all(folder); }

  const std::string folder = "/dev/shm/qz-fuzz-" + std::to_string(getpid());
  const std::string root = folder + "/usb1", device = root + "/1-3";
  const std::string hidraw = device + "/1-3:1.0/0003:2E7C:0818.0001/hidraw/hidraw0";
};

static void CheckNodes(Input& input) {
  static const Bus bus;
  const std::pair<std::string, const char*> attributes[] = {
      {"busnum", "1\n"},          {"devnum", "1\n"},           {"speed", "5000\n"},
      {"idVendor", "1d6b\n"},     {"idProduct", "0003\n"},     {"bcdDevice", "0610\n"},
      {"1-3/idVendor", "2e7c\n"}, {"1-3/idProduct", "0818\n"}, {"1-3/busnum", "1\n"},
      {"1-3/devnum", "2\n"},      {"1-3/serial", "A1\n"},      {"1-3/bNumInterfaces", " 1\n"},
      {"1-3/bcdDevice", "0100\n"}};
  for (const auto& [name, usual] : attributes) {
    std::ofstream(bus.root + '/' + name) << (input.Byte() % 4 == 3 ? input.Text() : usual);
  }
  NodeFacts node;
  Require(!ReadHidNode(bus.hidraw, node) || node.parentFolder == bus.device, "a parent");
  Require(!ReadUsbNode(bus.device, node) || node.deviceId.starts_with("USB\\VID_"), "a device");
  Require(!ReadUsbNode(bus.root, node) || node.deviceId.starts_with("USB\\ROOT_HUB"), "a root hub");
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const auto place = ParseUsbFolder(text);
  if (place) Require(LocationPath(*place, true).find("USBROOT(1)") != std::string::npos, "a root");
  const auto hid = ParseHidrawFolder(text);
  Require(!hid || hid->usbFolder.empty() == hid->usbInterface.empty(), "an interface's device");
  Require(!hid || hid->bus == 3 || hid->usbFolder.empty(), "an adapter is no device of it");
  std::string file, again;
  DevInst node = 0, sameNode = 0;
  if (ParseHidPath({text.begin(), text.end()}, file, node)) {
    Require(ParseHidPath(HidPath(file, node), again, sameNode) && sameNode == node, "a way back");
  }
  KeepsOffEndpoint(text, 0x2E7C, 0x0818);
  OsReleaseValue(text, "PRETTY_NAME");
  ParseKernelRelease(text);
  ParseMachine(text);
  Input input(data, size);
  CheckNodes(input);
  return 0;
}
