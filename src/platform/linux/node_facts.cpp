#include "platform/linux/node_facts.h"

#include <algorithm>
#include <cstdio>

#include "platform/ascii.h"
#include "platform/linux/out_endpoint.h"
#include "platform/linux/sysfs.h"
#include "platform/linux/sysfs_names.h"
#include "platform/linux/system_path.h"

namespace qzhid::platform {

namespace {

constexpr std::uint32_t kFirstSuperSpeed = 5000;  // Mbit/s
constexpr std::uint32_t kHighSpeed = 480;

std::optional<std::uint32_t> ReadNumber(const CSysfsFolder& folder, const char* attribute,
                                        int base) {
  const std::string text = folder.Read(attribute).value_or("");
  return ToNumber(std::string_view(text).substr(std::min(text.size(), text.find_first_not_of(' '))),
                  base);
}

/// What a USB device says about itself.
struct UsbIdentity {
  std::uint32_t vid = 0, pid = 0, revision = 0;
};

bool ReadIdentity(const CSysfsFolder& folder, UsbIdentity& identity) {
  const auto vid = ReadNumber(folder, "idVendor", 16), pid = ReadNumber(folder, "idProduct", 16);
  const auto revision = ReadNumber(folder, "bcdDevice", 16);
  if (!vid || !pid || !revision) return false;
  identity = {*vid, *pid, *revision};
  return true;
}

std::string IdPart(std::uint32_t vid, std::uint32_t pid) {
  return "VID_" + Hex4(vid) + "&PID_" + Hex4(pid);
}

/// Mbit/s of a bus; "1.5" counts as 1.
std::uint32_t ReadSpeed(const CSysfsFolder& rootHub) {
  const std::string text = rootHub.Read("speed").value_or("");
  return ToNumber(std::string_view(text).substr(0, text.find('.')), 10).value_or(0);
}

/// Device ids are searched for certain words, so a serial number must not contain them.
bool IsUsableInId(const std::string& serial) {
  const auto isPlain = [](char c) { return c > ' ' && c <= '~' && c != '\\' && c != ','; };
  std::string upper = serial;
  UpperCase(upper);
  return !serial.empty() && serial.size() <= 126 &&
         std::all_of(serial.begin(), serial.end(), isPlain) &&
         upper.find("ROOT") == std::string::npos;
}

/// Bus and number of the USB device in the folder.
struct UsbAddress {
  std::uint32_t bus = 0, device = 0;
};

bool ReadAddress(const CSysfsFolder& folder, UsbAddress& address) {
  const auto bus = ReadNumber(folder, "busnum", 10), device = ReadNumber(folder, "devnum", 10);
  if (!bus || !device) return false;
  address = {*bus, *device};
  return true;
}

void DescribeRootHub(const UsbIdentity& identity, const UsbPlace& place, std::uint32_t speed,
                     NodeFacts& node) {
  std::string name = "USB\\ROOT_HUB";
  if (speed >= kFirstSuperSpeed) {
    name += "30";
  } else if (speed == kHighSpeed) {
    name += "20";
  }
  node.deviceId = name + '\\' + std::string(LastPart(place.controllerFolder));
  const std::string ids = name + "&VID" + Hex4(identity.vid) + "&PID" + Hex4(identity.pid);
  node.hardwareIds = {ids + "&REV" + Hex4(identity.revision), ids, name};
}

void DescribeDevice(const CSysfsFolder& folder, const UsbIdentity& identity, NodeFacts& node) {
  const std::string name = "USB\\" + IdPart(identity.vid, identity.pid);
  const std::string serial = folder.Read("serial").value_or("");
  node.deviceId =
      name + '\\' + (IsUsableInId(serial) ? serial : std::string(LastPart(node.folder)));
  node.hardwareIds = {name + "&REV_" + Hex4(identity.revision), name};
}

/// The ids of a HID node. One that shares its USB device with others names its interface.
void DescribeHid(const HidPlace& place, const UsbIdentity& identity, bool isShared,
                 NodeFacts& node) {
  const std::string ids = IdPart(identity.vid, identity.pid);
  const std::string part = isShared ? "&MI_" + Hex4(place.interfaceNumber).substr(2) : "";
  node.deviceId = "HID\\" + ids + part + '\\' + place.usbInterface;
  node.hardwareIds = {"HID\\" + ids + "&REV_" + Hex4(identity.revision) + part,
                      "HID\\" + ids + part};
}

/// Reads a node; false when it is not there.
bool DescribeHidNode(const std::string& folder, NodeFacts& node, Status& shortage) {
  const CSysfsFolder self(folder, shortage);
  const auto place = ParseHidrawFolder(folder);
  if (!self || !place) return false;
  node = {.folder = folder,
          .instance = self.Instance(),
          .deviceFile = SystemPath("/dev/") + std::string(LastPart(folder)),
          .parentFolder = place->usbFolder,
          .vid = place->vid,
          .pid = place->pid};
  if (place->usbFolder.empty()) {
    const std::string name = "HID\\" + IdPart(place->vid, place->pid);
    node.deviceId = name + '\\' + place->name;
    node.hardwareIds = {name};
    return true;
  }
  const CSysfsFolder usb(place->usbFolder, shortage);
  UsbIdentity identity;
  const auto interfaces = ReadNumber(usb, "bNumInterfaces", 10);
  if (!ReadIdentity(usb, identity)) return false;
  DescribeHid(*place, identity, interfaces.value_or(1) > 1, node);
  node.hasInterruptOut = HasInterruptOut(place->usbFolder + '/' + place->usbInterface, shortage);
  // The device that was just read is this node's only if the node has been there all the time.
  return IsPresent(folder, self.Instance());
}

bool DescribeUsbNode(const std::string& folder, NodeFacts& node, Status& shortage) {
  const CSysfsFolder self(folder, shortage);
  const auto place = ParseUsbFolder(folder);
  UsbIdentity identity;
  UsbAddress address;
  if (!self || !place || !ReadIdentity(self, identity) || !ReadAddress(self, address)) return false;
  char file[64];
  std::snprintf(file, sizeof(file), "/dev/bus/usb/%03u/%03u", address.bus, address.device);
  const CSysfsFolder rootHub(place->controllerFolder + "/usb" + std::to_string(place->bus),
                             shortage);
  const std::uint32_t speed = ReadSpeed(rootHub);
  node = {.folder = folder,
          .instance = self.Instance(),
          .deviceFile = SystemPath(file),
          .locationPath = LocationPath(*place, speed >= kFirstSuperSpeed)};
  if (place->ports.empty()) {
    DescribeRootHub(identity, *place, speed, node);
    return true;
  }
  DescribeDevice(self, identity, node);
  node.parentFolder = FolderOf(folder);
  node.port = place->ports.back();
  UsbAddress hub;
  if (!ReadAddress(CSysfsFolder(node.parentFolder, shortage), hub)) return false;
  char info[64];
  std::snprintf(info, sizeof(info), "Port_#%04u.Hub_#%04u", node.port, hub.device);
  node.locationInfo = info;
  return IsPresent(folder, self.Instance());
}

/// A fact that cannot be read for lack of descriptors does not prove that the node has left, and an
/// optional fact must not be missing for that reason.
template <class Describe>
Status ReadNode(const Describe& describe, const std::string& folder, NodeFacts& node) {
  Status shortage;
  const bool isThere = describe(folder, node, shortage);
  if (!shortage) return shortage;
  return isThere ? Status{} : NoDevice();
}

}  // namespace

Status ReadHidNode(const std::string& folder, NodeFacts& node) {
  return ReadNode(DescribeHidNode, folder, node);
}

Status ReadUsbNode(const std::string& folder, NodeFacts& node) {
  return ReadNode(DescribeUsbNode, folder, node);
}

}  // namespace qzhid::platform
