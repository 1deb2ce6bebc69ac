// What the Linux backend makes of sysfs: the listed nodes, their numbers, parents and texts.
#include <gmock/gmock.h>
#include <sys/utsname.h>

#include <ctime>

#include "platform/linux/host_facts.h"
#include "platform/linux/kernel_double.h"
#include "platform/linux/node_registry.h"

namespace qzhid::platform::test {

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using enum TextProperty;
using Texts = std::vector<std::string>;

class DeviceTreeTest : public ::testing::Test {
 protected:
  static std::vector<DevInst> List() {
    NodeSet set;
    EXPECT_EQ(0, CodeOf(OpenNodeSet(HidClassGuid(), set)));
    std::vector<DevInst> nodes;
    DevInst node = 0;
    for (std::uint32_t i = 0; EnumNode(set, i, node); ++i) nodes.push_back(node);
    return nodes;
  }
  static std::string TextOr(const std::string& text, const Status& status) {
    return status ? text : "error " + std::to_string(status.code);
  }
  /// Without its terminators; the strings of a list are separated by blanks.
  static std::string TextOf(DevInst node, TextProperty property) {
    std::wstring text;
    const Status status = GetTextProperty(node, property, 4096, text);
    std::string narrow = ToNarrow(text);
    for (char& unit : narrow) unit = unit == 0 ? ' ' : unit;
    return TextOr(narrow.substr(0, narrow.find_last_not_of(' ') + 1), status);
  }
  /// The ids of a node, its place on its hub and in the tree, and its address.
  static Texts FactsOf(DevInst node) {
    std::wstring id;
    std::uint32_t address = 0;
    const Status idStatus = GetDeviceIdW(node, 1000, id);
    const Status addressStatus = GetAddressProperty(node, address);
    return {TextOr(ToNarrow(id), idStatus), TextOf(node, HardwareIds), TextOf(node, LocationInfo),
            TextOf(node, LocationPaths), TextOr(std::to_string(address), addressStatus)};
  }
  /// The facts of a node and of all nodes above it, and how that ends.
  static std::vector<Texts> FactsUpFrom(DevInst node) {
    std::vector<Texts> facts{FactsOf(node)};
    Status status;
    while ((status = GetParent(DevInst{node}, node))) facts.push_back(FactsOf(node));
    facts.push_back({TextOr("", status)});
    return facts;
  }
  static DevInst ParentOf(DevInst node) {
    DevInst parent = 0;
    EXPECT_EQ(0, CodeOf(GetParent(node, parent)));
    return parent;
  }
  /// The facts of a USB device, by its folder.
  NodeFacts ReadUsb(const std::string& folder) const {
    NodeFacts node;
    EXPECT_EQ(0, CodeOf(ReadUsbNode(kernel.Path(folder), node)));
    return node;
  }

  KernelDouble kernel;
  const std::string hid = "HID\\VID_2E7C&PID_0818", usb = "USB\\VID_2E7C&PID_0818",
                    none = "error 2", gone = "error 19";
};

TEST_F(DeviceTreeTest, HidrawDevicesThatSayWhatTheyAreAreListedInTheOrderOfTheirNumbers) {
  kernel.Plug("1", 10);
  kernel.Plug("2", 9);
  kernel.Plug("3", 0);
  kernel.Plug("4", 4, {{"idVendor", "none"}});
  kernel.Plug("5", 5, {{"idProduct", "none"}});
  kernel.Plug("6", 6, {{"bcdDevice", "none"}});
  for (const std::string name : {"hidraw", "hidrawX", "other0"}) {
    kernel.Write("/sys/class/hidraw/" + name + "/dev", "1:3");
  }
  fs::create_symlink("/nowhere", kernel.Path("/sys/class/hidraw/hidraw7"));
  Texts ids;
  for (const DevInst node : List()) ids.push_back(FactsOf(node)[0]);
  EXPECT_THAT(ids, ElementsAre(hid + "\\1-3:1.0", hid + "\\1-2:1.0", hid + "\\1-1:1.0"));
}

TEST_F(DeviceTreeTest, ASystemWithoutTheHidrawClassHasNoNodesAndOneWithoutSysfsFails) {
  NodeSet set;
  fs::remove(kernel.Path("/sys/class/hidraw"));
  EXPECT_THAT(List(), IsEmpty());
  fs::remove_all(kernel.Path("/sys/class"));
  EXPECT_EQ(ENOENT, CodeOf(OpenNodeSet(HidClassGuid(), set)));
  EXPECT_FALSE(set);
}

TEST_F(DeviceTreeTest, ASetEndsAfterItsLastNodeAndWithItsClosing) {
  kernel.Plug("1", 4);
  NodeSet set;
  DeviceInterface found;
  DevInst node = 0;
  std::wstring path;
  EXPECT_EQ(0, CodeOf(OpenNodeSet({}, set)));
  EXPECT_EQ(ENOENT, CodeOf(EnumNode(set, 0, node))) << "of another class";
  EXPECT_EQ(0, CodeOf(OpenNodeSet(HidClassGuid(), set)));
  EXPECT_EQ(0, CodeOf(FirstInterface(set, 0, found)));
  EXPECT_EQ(std::pair(0u, List().at(0)), std::pair(found.node, found.devInst));
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
  kernel.Plug("3", -1);
  kernel.Plug("3.12", 0, {{"serial", "A1"}});
  kernel.Plug("1", 1, {{"bNumInterfaces", " 2"}});
  const std::string folder = "/sys/devices/virtual/0005:1234:5678.0001/hidraw/hidraw3",
                    root = "USB\\ROOT_HUB20", place = "PCIROOT(0)#PCI(1400)#USBROOT(0)";
  kernel.Write(folder + "/dev", "1:3");
  fs::create_symlink(kernel.Path(folder), kernel.Path("/sys/class/hidraw/hidraw3"));
  const std::vector<DevInst> listed = List();
  const std::string usbIds = usb + "&REV_0100 " + usb;
  EXPECT_THAT(
      FactsUpFrom(listed.at(0)),
      ElementsAre(
          Texts{hid + "\\1-3.12:1.0", hid + "&REV_0100 " + hid, none, none, none},
          Texts{usb + "\\A1", usbIds, "Port_#0012.Hub_#0002", place + "#USB(3)#USB(12)", "12"},
          Texts{usb + "\\1-3", usbIds, "Port_#0003.Hub_#0001", place + "#USB(3)", "3"},
          Texts{root + "\\0000:00:14.0",
                root + "&VID1D6B&PID0002&REV0100 " + root + "&VID1D6B&PID0002 " + root, none, place,
                none},
          Texts{none}));
  const Texts shared{hid + "&MI_00\\1-1:1.0", hid + "&REV_0100&MI_00 " + hid + "&MI_00", none, none,
                     none};
  EXPECT_EQ(shared, FactsOf(listed.at(1))) << "one of several interfaces";
  const std::string ids = "HID\\VID_1234&PID_5678";
  EXPECT_THAT(FactsUpFrom(listed.at(2)),
              ElementsAre(Texts{ids + "\\0005:1234:5678.0001", ids, none, none, none}, Texts{none}))
      << "on another bus";
}

TEST_F(DeviceTreeTest, ASerialNumberIsPartOfAnIdUnlessItCouldBeTakenForSomethingElse) {
  kernel.Plug("1", -1);
  const std::string folder = kernel.UsbFolder("1"), longest(126, 'x');
  for (const std::string& serial : {std::string("A1-b_~!"), longest}) {
    kernel.Write(folder + "/serial", serial + '\n');
    EXPECT_EQ(usb + '\\' + serial, ReadUsb(folder).deviceId);
  }
  for (const std::string& serial :
       {longest + 'x', std::string(), std::string("a b"), std::string("a\\b"), std::string("a,b"),
        std::string("a\x7F"), std::string("aROOTb"), std::string("rOoT"), std::string("\xC3\xB6"),
        std::string("A1\n")}) {
    kernel.Write(folder + "/serial", serial + '\n');
    EXPECT_EQ(usb + "\\1-1", ReadUsb(folder).deviceId) << serial;
  }
}

TEST_F(DeviceTreeTest, ARootHubIsNamedAfterItsSpeed) {
  const std::tuple<std::string, std::string, std::string> rows[] = {
      {"1.5", "", "0"},    {"12", "", "0"},      {"480", "20", "0"},   {"4999", "", "0"},
      {"5000", "30", "1"}, {"20000", "30", "1"}, {"unknown", "", "0"}, {"", "", "0"}};
  const std::string folder = fs::path(kernel.UsbFolder("1")).parent_path().string();
  for (const auto& [speed, generation, number] : rows) {
    kernel.Write(folder + "/speed", speed + '\n');
    const NodeFacts node = ReadUsb(folder);
    EXPECT_EQ(std::pair("USB\\ROOT_HUB" + generation + "\\0000:00:14.0",
                        "PCIROOT(0)#PCI(1400)#USBROOT(" + number + ")"),
              std::pair(node.deviceId, node.locationPath))
        << speed;
  }
}

TEST_F(DeviceTreeTest, TextsMustFitTheirCapacityWithTheirTerminators) {
  kernel.Plug("1");
  const DevInst node = List().at(0);
  const std::size_t id = FactsOf(node)[0].size() + 1, list = (FactsOf(node)[1].size() + 2) * 2;
  std::string narrow;
  std::wstring wide, ids;
  for (const int missing : {1, 0}) {
    const int code = missing == 0 ? 0 : ENOBUFS;
    EXPECT_EQ(code, CodeOf(GetDeviceIdA(node, id - missing, narrow)));
    EXPECT_EQ(code, CodeOf(GetDeviceIdW(node, id - missing, wide)));
    EXPECT_EQ(code, CodeOf(GetTextProperty(node, HardwareIds, list - missing, ids)));
    EXPECT_EQ(code == 0 ? FactsOf(node)[0] : "", narrow);
    EXPECT_EQ(narrow, ToNarrow(wide));
    EXPECT_EQ(code == 0 ? list : 0, ids.size() * 2);
  }
}

TEST_F(DeviceTreeTest, ANumberIsThatOfOneStayAndIsNeverUsedAgain) {
  kernel.Plug("1", 0);
  kernel.Plug("2", 1);
  const std::vector<DevInst> before = List();
  const DevInst parent = ParentOf(before.at(0));
  EXPECT_EQ(before, List());
  EXPECT_EQ(parent, ParentOf(before[0]));
  kernel.Unplug("1");
  EXPECT_EQ(std::vector<DevInst>{before.at(1)}, List());
  for (const DevInst node : {before[0], DevInst{0}, DevInst{0x7FFFFFFF}}) {
    EXPECT_THAT(FactsUpFrom(node), ElementsAre(Texts(5, gone), Texts{gone}));
  }
  kernel.Plug("1", 0);
  const std::vector<DevInst> after = List();
  EXPECT_LT(std::max(parent, before[1]), after.at(0));
  EXPECT_EQ(before[1], after.at(1));
  EXPECT_LT(after[0], ParentOf(after[0]));
}

TEST_F(DeviceTreeTest, AnotherDeviceThatCameWhileOneWasReadIsNotTakenForIt) {
  static KernelDouble* s_kernel;
  s_kernel = &kernel;
  kernel.Plug("1");
  CNodeRegistry registry;
  DevInst number = 0;
  const auto replace = [](const std::string& folder, NodeFacts& node) {
    s_kernel->Unplug("1");
    s_kernel->Plug("1");
    return ReadUsbNode(folder, node);
  };
  const std::string folder = kernel.Path(kernel.UsbFolder("1"));
  EXPECT_EQ(ENODEV, CodeOf(registry.NumberOf(folder, replace, number)));
  EXPECT_EQ(0u, number);
  EXPECT_EQ(0, CodeOf(registry.NumberOf(folder, &ReadUsbNode, number)));
  EXPECT_EQ(1u, number);
}

TEST_F(DeviceTreeTest, AHostIsDescribedByItsKernelAndTheFirstOsReleaseFileThatThereIs) {
  utsname names{};
  uname(&names);
  const KernelRelease kernelRelease = ParseKernelRelease(names.release);
  const auto expect = [&](bool hasFile, const std::string& product) {
    const HostDescription host = DescribeHost();
    EXPECT_EQ(std::pair(hasFile, product),
              std::pair(host.hasVersionStore, host.productName.value_or("none")));
    EXPECT_EQ(
        std::tuple(kernelRelease.major, kernelRelease.minor, kernelRelease.build,
                   kernelRelease.updateRevision, ParseMachine(names.machine)),
        std::tuple(host.major, host.minor, host.build, host.updateRevision, host.architecture));
  };
  kernel.Write("/usr/lib/os-release", "PRETTY_NAME=Distributor\n");
  expect(true, "Test System");
  fs::remove(kernel.Path("/etc/os-release"));
  expect(true, "Distributor");
  kernel.Write("/usr/lib/os-release", "NAME=Other\n");
  expect(true, "none");
  fs::remove(kernel.Path("/usr/lib/os-release"));
  expect(false, "none");
}

TEST(LinuxKernel, TheTimeIsThatOfTheSystemAndSleepsTakeMilliseconds) {
  const std::uint64_t start = ClockMs();
  const std::time_t earliest = std::time(nullptr);
  SleepMs(2);
  const LocalTime time = GetLocalTime();
  std::tm now = *std::localtime(&earliest);
  now.tm_year = time.year - 1900;
  now.tm_mon = time.month - 1;
  now.tm_mday = time.day;
  now.tm_hour = time.hour;
  now.tm_min = time.minute;
  now.tm_sec = time.second;
  const std::time_t seconds = std::mktime(&now);
  EXPECT_LE(earliest, seconds);
  EXPECT_GE(std::time(nullptr), seconds);
  EXPECT_LE(start + 2, ClockMs());
}

}  // namespace

}  // namespace qzhid::platform::test
