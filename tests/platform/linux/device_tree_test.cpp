// What the Linux backend makes of sysfs: the listed nodes, their numbers, parents and texts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "platform/code_of.h"
#include "platform/linux/kernel_double.h"
#include "platform/linux/node_registry.h"
#include "platform/linux/sysfs.h"
#include "platform/linux/system_path.h"

namespace qzhid::platform::test {

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A list of strings without its terminators, separated by spaces.
std::string Flat(const std::wstring& text) {
  std::string flat;
  for (const wchar_t unit : text) flat += unit == 0 ? ' ' : static_cast<char>(unit);
  return flat.substr(0, flat.find_last_not_of(' ') + 1);
}

class DeviceTreeTest : public ::testing::Test {
 protected:
  static NodeSet OpenSet() {
    NodeSet set;
    EXPECT_EQ(0, CodeOf(OpenNodeSet(HidClassGuid(), set)));
    return set;
  }
  static std::vector<DevInst> List() {
    const NodeSet set = OpenSet();
    std::vector<DevInst> nodes;
    DevInst node = 0;
    for (std::uint32_t i = 0; EnumNode(set, i, node); ++i) nodes.push_back(node);
    return nodes;
  }
  static std::string IdOf(DevInst node) {
    std::string id;
    return GetDeviceIdA(node, 1000, id) ? id : "none";
  }
  static std::vector<std::string> ListedIds() {
    std::vector<std::string> ids;
    for (const DevInst node : List()) ids.push_back(IdOf(node));
    return ids;
  }
  static std::string TextOf(DevInst node, TextProperty property) {
    std::wstring text;
    const Status status = GetTextProperty(node, property, 4096, text);
    return status ? Flat(text) : "error " + std::to_string(status.code);
  }
  static DevInst ParentOf(DevInst node) {
    DevInst parent = 0;
    EXPECT_EQ(0, CodeOf(GetParent(node, parent)));
    return parent;
  }
  /// A plain hub with other attributes.
  static Attributes HubWith(Attributes attributes) {
    attributes.insert({{"idVendor", "2e7c"}, {"idProduct", "0818"}});
    return attributes;
  }

  KernelDouble kernel;
};

TEST_F(DeviceTreeTest, NodesAreListedInTheOrderOfTheirHidrawNumbers) {
  kernel.Plug({.ports = "1", .hidraw = 10});
  kernel.Plug({.ports = "2", .hidraw = 9});
  kernel.Plug({.ports = "3", .hidraw = 0});
  EXPECT_THAT(ListedIds(),
              ElementsAre("HID\\VID_2E7C&PID_0818\\1-3:1.0", "HID\\VID_2E7C&PID_0818\\1-2:1.0",
                          "HID\\VID_2E7C&PID_0818\\1-1:1.0"));
}

TEST_F(DeviceTreeTest, WhatIsNoHidrawDeviceIsNotListed) {
  kernel.Plug({.ports = "1"});
  for (const char* name : {"hidraw", "hidrawX", "other0"}) {
    kernel.Write(std::string("/sys/class/hidraw/") + name + "/dev", "1:3");
  }
  fs::create_symlink("/nowhere", kernel.Path("/sys/class/hidraw/hidraw7"));
  EXPECT_EQ(1u, List().size());
}

TEST_F(DeviceTreeTest, ADeviceThatDoesNotSayWhatItIsIsNotListed) {
  for (const char* attribute : {"idVendor", "idProduct", "bcdDevice"}) {
    kernel.Plug({.ports = "1", .attributes = HubWith({{attribute, "none"}})});
    EXPECT_THAT(List(), IsEmpty()) << attribute;
    kernel.Unplug("1");
  }
}

TEST_F(DeviceTreeTest, ASystemWithoutTheHidrawClassHasNoNodesAndOneWithoutSysfsFails) {
  NodeSet set;
  fs::remove(kernel.Path("/sys/class/hidraw"));
  EXPECT_THAT(List(), IsEmpty());
  fs::remove_all(kernel.Path("/sys/class"));
  EXPECT_EQ(ENOENT, CodeOf(OpenNodeSet(HidClassGuid(), set)));
  EXPECT_FALSE(set);
}

TEST_F(DeviceTreeTest, ASetOfAnotherClassIsEmpty) {
  kernel.Plug({.ports = "1"});
  NodeSet set;
  DevInst node = 0;
  EXPECT_EQ(0, CodeOf(OpenNodeSet({}, set)));
  EXPECT_EQ(ENOENT, CodeOf(EnumNode(set, 0, node)));
}

TEST_F(DeviceTreeTest, ASetEndsAfterItsLastNodeAndWithItsClosing) {
  kernel.Plug({.ports = "1", .hidraw = 4});
  NodeSet set = OpenSet();
  DeviceInterface found;
  DevInst node = 0;
  std::wstring path;
  EXPECT_EQ(0, CodeOf(FirstInterface(set, 0, found)));
  EXPECT_EQ(List(), std::vector<DevInst>{found.devInst});
  EXPECT_EQ(0u, found.node);
  EXPECT_EQ(0, CodeOf(InterfacePath(set, found, path)));
  EXPECT_EQ(kernel.Path("/dev/hidraw4#") + std::to_string(found.devInst), ToNarrow(path));
  EXPECT_EQ(ENOENT, CodeOf(EnumNode(set, 1, node)));
  EXPECT_EQ(ENOENT, CodeOf(FirstInterface(set, 1, found)));
  EXPECT_EQ(ENOENT, CodeOf(InterfacePath(set, {1, 0}, path)));
  kernel.Unplug("1");
  EXPECT_EQ(ENODEV, CodeOf(InterfacePath(set, found, path)));
  EXPECT_EQ(0, CodeOf(CloseNodeSet(set)));
  EXPECT_EQ(EBADF, CodeOf(CloseNodeSet(set)));
  EXPECT_EQ(EBADF, CodeOf(EnumNode(set, 0, node)));
}

TEST_F(DeviceTreeTest, EachNodeUpToTheRootHubHasItsIdsItsPlaceAndItsAddress) {
  kernel.Plug({.ports = "3.12", .attributes = HubWith({{"serial", "A1"}})});
  using enum TextProperty;
  const std::string place = "PCIROOT(0)#PCI(1400)#USBROOT(0)", none = "error 2";
  const struct {
    std::string id, hardwareIds, info, path;
    std::uint32_t address;
  } rows[] = {
      {"HID\\VID_2E7C&PID_0818\\1-3.12:1.0",
       "HID\\VID_2E7C&PID_0818&REV_0100 HID\\VID_2E7C&PID_0818", none, none, 0},
      {"USB\\VID_2E7C&PID_0818\\A1", "USB\\VID_2E7C&PID_0818&REV_0100 USB\\VID_2E7C&PID_0818",
       "Port_#0012.Hub_#0002", place + "#USB(3)#USB(12)", 12},
      {"USB\\VID_2E7C&PID_0818\\1-3", "USB\\VID_2E7C&PID_0818&REV_0100 USB\\VID_2E7C&PID_0818",
       "Port_#0003.Hub_#0001", place + "#USB(3)", 3},
      {"USB\\ROOT_HUB20\\0000:00:14.0",
       "USB\\ROOT_HUB20&VID1D6B&PID0002&REV0100 USB\\ROOT_HUB20&VID1D6B&PID0002 "
       "USB\\ROOT_HUB20",
       none, place, 0}};
  DevInst node = List().at(0);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.id);
    std::uint32_t address = 0;
    EXPECT_EQ(row.id, IdOf(node));
    EXPECT_EQ(row.hardwareIds, TextOf(node, HardwareIds));
    EXPECT_EQ(row.info, TextOf(node, LocationInfo));
    EXPECT_EQ(row.path, TextOf(node, LocationPaths));
    EXPECT_EQ(row.address == 0 ? ENOENT : 0, CodeOf(GetAddressProperty(node, address)));
    EXPECT_EQ(row.address, address);
    const DevInst child = node;
    const bool isTop = row.id.find("ROOT") != std::string::npos;
    EXPECT_EQ(isTop ? ENOENT : 0, CodeOf(GetParent(child, node)));
  }
}

TEST_F(DeviceTreeTest, ASerialNumberIsPartOfAnIdUnlessItCouldBeTakenForSomethingElse) {
  kernel.Plug({.ports = "1", .hidraw = -1});
  const std::string folder = kernel.UsbFolder("1"), longest(126, 'x');
  const std::pair<std::string, bool> rows[] = {
      {"A1-b_~!", true}, {longest, true}, {longest + 'x', false}, {"", false},
      {"a b", false},    {"a\\b", false}, {"a,b", false},         {"a\x7F", false},
      {"aROOTb", false}, {"rOoT", false}, {"\xC3\xB6", false}};
  for (const auto& [serial, isUsed] : rows) {
    kernel.Write(folder + "/serial", serial + '\n');
    NodeFacts node;
    ASSERT_TRUE(ReadUsbNode(kernel.Path(folder), node));
    EXPECT_EQ("USB\\VID_2E7C&PID_0818\\" + (isUsed ? serial : "1-1"), node.deviceId);
  }
}

TEST_F(DeviceTreeTest, ARootHubIsNamedAfterItsSpeed) {
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"1.5", "USB\\ROOT_HUB\\", "USBROOT(0)"},     {"12", "USB\\ROOT_HUB\\", "USBROOT(0)"},
      {"480", "USB\\ROOT_HUB20\\", "USBROOT(0)"},   {"4999", "USB\\ROOT_HUB\\", "USBROOT(0)"},
      {"5000", "USB\\ROOT_HUB30\\", "USBROOT(1)"},  {"20000", "USB\\ROOT_HUB30\\", "USBROOT(1)"},
      {"unknown", "USB\\ROOT_HUB\\", "USBROOT(0)"}, {"", "USB\\ROOT_HUB\\", "USBROOT(0)"}};
  const std::string folder = fs::path(kernel.UsbFolder("1")).parent_path().string();
  for (const auto& [speed, id, root] : rows) {
    kernel.Write(folder + "/speed", std::string(speed) + '\n');
    NodeFacts node;
    ASSERT_TRUE(ReadUsbNode(kernel.Path(folder), node));
    EXPECT_EQ(std::string(id) + "0000:00:14.0", node.deviceId) << speed;
    EXPECT_EQ(std::string("PCIROOT(0)#PCI(1400)#") + root, node.locationPath) << speed;
  }
}

TEST_F(DeviceTreeTest, ANodeOfSeveralInterfacesNamesItsOwn) {
  kernel.Plug({.ports = "1", .attributes = HubWith({{"bNumInterfaces", " 2"}})});
  EXPECT_THAT(ListedIds(), ElementsAre("HID\\VID_2E7C&PID_0818&MI_00\\1-1:1.0"));
  EXPECT_EQ("HID\\VID_2E7C&PID_0818&REV_0100&MI_00 HID\\VID_2E7C&PID_0818&MI_00",
            TextOf(List().at(0), TextProperty::HardwareIds));
}

TEST_F(DeviceTreeTest, ANodeOnAnotherBusHasItsHidNameAndNoParent) {
  const std::string folder = "/sys/devices/virtual/0005:1234:5678.0001/hidraw/hidraw3";
  kernel.Write(folder + "/dev", "1:3");
  fs::create_symlink(kernel.Path(folder), kernel.Path("/sys/class/hidraw/hidraw3"));
  EXPECT_THAT(ListedIds(), ElementsAre("HID\\VID_1234&PID_5678\\0005:1234:5678.0001"));
  EXPECT_EQ("HID\\VID_1234&PID_5678", TextOf(List().at(0), TextProperty::HardwareIds));
  DevInst parent = 0;
  EXPECT_EQ(ENOENT, CodeOf(GetParent(List().at(0), parent)));
}

TEST_F(DeviceTreeTest, TextsMustFitTheirCapacityWithTheirTerminators) {
  kernel.Plug({.ports = "1"});
  const DevInst node = List().at(0);
  const std::size_t id = IdOf(node).size() + 1;
  const std::size_t list = (TextOf(node, TextProperty::HardwareIds).size() + 2) * 2;
  std::string narrow = "kept";
  std::wstring wide = L"kept";
  EXPECT_EQ(ENOBUFS, CodeOf(GetDeviceIdA(node, id - 1, narrow)));
  EXPECT_EQ(ENOBUFS, CodeOf(GetDeviceIdW(node, id - 1, wide)));
  EXPECT_EQ(ENOBUFS, CodeOf(GetTextProperty(node, TextProperty::HardwareIds, list - 1, wide)));
  EXPECT_EQ("kept", narrow);
  EXPECT_EQ(L"kept", wide);
  EXPECT_EQ(0, CodeOf(GetDeviceIdA(node, id, narrow)));
  EXPECT_EQ(0, CodeOf(GetDeviceIdW(node, id, wide)));
  EXPECT_EQ(narrow, ToNarrow(wide));
  EXPECT_EQ(0, CodeOf(GetTextProperty(node, TextProperty::HardwareIds, list, wide)));
}

TEST_F(DeviceTreeTest, ANumberStandsForOneStayAndIsNeverUsedAgain) {
  kernel.Plug({.ports = "1", .hidraw = 0});
  kernel.Plug({.ports = "2", .hidraw = 1});
  const std::vector<DevInst> before = List();
  const DevInst usb = ParentOf(before[0]);
  EXPECT_EQ(before, List());
  EXPECT_EQ(usb, ParentOf(before[0]));
  kernel.Unplug("1");
  EXPECT_EQ(std::vector<DevInst>{before[1]}, List());
  kernel.Plug({.ports = "1", .hidraw = 0});
  const std::vector<DevInst> after = List();
  ASSERT_EQ(2u, after.size());
  EXPECT_LT(std::max(usb, before[1]), after[0]);
  EXPECT_EQ(before[1], after[1]);
  EXPECT_LT(after[0], ParentOf(after[0]));
}

TEST_F(DeviceTreeTest, NothingIsKnownOfANodeThatIsNotPresent) {
  kernel.Plug({.ports = "1"});
  const DevInst gone = List().at(0);
  kernel.Unplug("1");
  for (const DevInst node : {gone, DevInst{0}, DevInst{0x7FFFFFFF}}) {
    DevInst parent = 77;
    std::uint32_t address = 77;
    std::string narrow;
    std::wstring wide;
    EXPECT_EQ(ENODEV, CodeOf(GetParent(node, parent)));
    EXPECT_EQ(ENODEV, CodeOf(GetDeviceIdA(node, 200, narrow)));
    EXPECT_EQ(ENODEV, CodeOf(GetDeviceIdW(node, 200, wide)));
    EXPECT_EQ(ENODEV, CodeOf(GetTextProperty(node, TextProperty::HardwareIds, 4096, wide)));
    EXPECT_EQ(ENODEV, CodeOf(GetAddressProperty(node, address)));
    EXPECT_EQ(77u, parent);
    EXPECT_EQ(77u, address);
  }
}

TEST_F(DeviceTreeTest, AnotherDeviceThatCameWhileOneWasReadIsNotTakenForIt) {
  static KernelDouble* s_kernel;
  s_kernel = &kernel;
  kernel.Plug({.ports = "1"});
  CNodeRegistry registry;
  DevInst number = 0;
  const auto replace = [](const std::string& folder, NodeFacts& node) {
    s_kernel->Unplug("1");
    s_kernel->Plug({.ports = "1"});
    return ReadUsbNode(folder, node);
  };
  const std::string folder = kernel.Path(kernel.UsbFolder("1"));
  EXPECT_EQ(ENODEV, CodeOf(registry.NumberOf(folder, replace, number)));
  EXPECT_EQ(0u, number);
  EXPECT_EQ(0, CodeOf(registry.NumberOf(folder, &ReadUsbNode, number)));
  EXPECT_EQ(1u, number);
}

TEST_F(DeviceTreeTest, AnAttributeIsReadWithoutItsLineEndAndOneOfSeveralOrNoneIsReadAsItIs) {
  Status shortage;
  const CSysfsFolder folder(kernel.Path("/etc"), shortage);
  const std::pair<std::string, std::string> rows[] = {
      {"a\n", "a"},
      {"a\n\n", "a\n"},
      {"a", "a"},
      {"", ""},
      {std::string(5000, 'x'), std::string(5000, 'x')}};
  for (const auto& [file, text] : rows) {
    kernel.Write("/etc/attribute", file);
    EXPECT_EQ(text, folder.Read("attribute"));
  }
  EXPECT_EQ(std::nullopt, folder.Read("missing"));
  EXPECT_TRUE(shortage.ok) << "no shortage";
}

TEST_F(DeviceTreeTest, AHostIsDescribedByTheFirstOsReleaseFileThatThereIs) {
  kernel.Write("/usr/lib/os-release", "PRETTY_NAME=Distributor\n");
  EXPECT_EQ("Test System", DescribeHost().productName);
  fs::remove(kernel.Path("/etc/os-release"));
  EXPECT_EQ("Distributor", DescribeHost().productName);
  EXPECT_TRUE(DescribeHost().hasVersionStore);
  kernel.Write("/usr/lib/os-release", "NAME=Other\n");
  EXPECT_EQ(std::nullopt, DescribeHost().productName);
  EXPECT_TRUE(DescribeHost().hasVersionStore);
  fs::remove(kernel.Path("/usr/lib/os-release"));
  EXPECT_EQ(std::nullopt, DescribeHost().productName);
  EXPECT_FALSE(DescribeHost().hasVersionStore);
}

}  // namespace

}  // namespace qzhid::platform::test
