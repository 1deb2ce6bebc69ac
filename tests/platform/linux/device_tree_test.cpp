// What the Linux backend makes of sysfs: the listed nodes, their numbers, parents and texts.
#include <sys/resource.h>
#include <sys/utsname.h>

#include <ctime>

#include "platform/linux/host_facts.h"
#include "platform/linux/kernel_double.h"
#include "platform/linux/node_registry.h"
#include "platform/system/linux/system_call.h"

namespace qzhid::platform::test {

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using enum TextProperty;
using Texts = std::vector<std::string>;

class DeviceTreeTest : public ::testing::Test {
 protected:
  /// The id of a node, its hardware ids, its place on its hub and in the tree, and its address.
  static Texts FactsOf(DevInst node) {
    const auto textOr = [](const std::string& text, const Status& status) {
      return status ? text : "error " + std::to_string(status.code);
    };
    std::wstring id;
    std::uint32_t address = 0;
    const Status idStatus = GetDeviceIdW(node, 1000, id);
    const Status addressStatus = GetAddressProperty(node, address);
    return {textOr(ToNarrow(id), idStatus), TextOf(node, HardwareIds), TextOf(node, LocationInfo),
            TextOf(node, LocationPaths), textOr(std::to_string(address), addressStatus)};
  }
  /// The facts of a node and of all nodes above it, and the code that ends the way up.
  static std::vector<Texts> FactsUpFrom(DevInst node) {
    std::vector<Texts> facts{FactsOf(node)};
    Status status;
    while ((status = GetParent(DevInst{node}, node))) facts.push_back(FactsOf(node));
    facts.push_back({"error " + std::to_string(status.code)});
    return facts;
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

/// The result of a task that finds so many free descriptors. Nothing else is done meanwhile,
/// because sanitizers and reports of failures need some, too.
template <class Task>
auto WithDescriptors(int spare, const Task& task) {
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  rlimit few = before;
  few.rlim_cur =
      static_cast<rlim_t>(OpenFile("/dev/null", O_RDONLY).get()) + static_cast<rlim_t>(spare);
  setrlimit(RLIMIT_NOFILE, &few);
  const auto result = task();
  setrlimit(RLIMIT_NOFILE, &before);
  return result;
}

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
  for (const DevInst node : PresentNodes()) ids.push_back(FactsOf(node)[0]);
  EXPECT_THAT(ids, ElementsAre(hid + "\\1-3:1.0", hid + "\\1-2:1.0", hid + "\\1-1:1.0"));
}

TEST_F(DeviceTreeTest, ASystemWithoutTheHidrawClassHasNoNodesAndOneWithoutSysfsFails) {
  NodeSet set;
  fs::remove(kernel.Path("/sys/class/hidraw"));
  EXPECT_THAT(PresentNodes(), IsEmpty());
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
  EXPECT_EQ(std::pair(0u, PresentNodes().at(0)), std::pair(found.node, found.devInst));
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
  const std::vector<DevInst> listed = PresentNodes();
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
  const std::pair<std::string, bool> rows[] = {
      {"A1-b_~!", true}, {longest, true}, {longest + 'x', false}, {"", false},
      {"a b", false},    {"a\\b", false}, {"a,b", false},         {"a\x7F", false},
      {"rOoT1", false},  {"A1\n", false}, {"\xC3\xB6", false}};
  for (const auto& [serial, isUsed] : rows) {
    kernel.Write(folder + "/serial", serial + '\n');
    EXPECT_EQ(usb + '\\' + (isUsed ? serial : "1-1"), ReadUsb(folder).deviceId);
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
  const DevInst node = PresentNodes().at(0);
  const std::size_t id = FactsOf(node)[0].size() + 1, list = (FactsOf(node)[1].size() + 2) * 2;
  std::string narrow;
  std::wstring wide, ids;
  for (const std::size_t missing : {std::size_t{1}, std::size_t{0}}) {
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
  const std::vector<DevInst> before = PresentNodes();
  const DevInst parent = ParentOf(before.at(0));
  EXPECT_EQ(before, PresentNodes());
  EXPECT_EQ(parent, ParentOf(before[0]));
  kernel.Unplug("1");
  EXPECT_EQ(std::vector<DevInst>{before.at(1)}, PresentNodes());
  for (const DevInst node : {before[0], DevInst{0}, DevInst{0x7FFFFFFF}}) {
    EXPECT_THAT(FactsUpFrom(node), ElementsAre(Texts(5, gone), Texts{gone}));
  }
  kernel.Plug("1", 0);
  const std::vector<DevInst> after = PresentNodes();
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

TEST_F(DeviceTreeTest, ANodeIsReadWholeAndAllAreListedOrTheShortageIsReported) {
  kernel.Plug("3", 0, {{"serial", "A1"}, {"bNumInterfaces", " 2"}});
  const std::string endpoint = kernel.UsbFolder("3") + "/1-3:1.0/ep_0f",
                    hidraw = kernel.Path(kernel.HidrawFolder("3", 0)),
                    hub = kernel.Path(kernel.UsbFolder("3")), root = hub.substr(0, hub.rfind('/'));
  kernel.Write(endpoint + "/type", "Interrupt\n");
  kernel.Write(endpoint + "/direction", "out\n");
  NodeSet set;
  const auto list = [&](const std::string&, NodeFacts& node) {
    const Status status = OpenNodeSet(HidClassGuid(), set);
    node.hasInterruptOut = set != nullptr;
    return status;
  };
  const struct {
    std::function<Status(const std::string&, NodeFacts&)> read;
    std::string folder;
    int needed;  // descriptors at a time
  } rows[] = {
      {&ReadHidNode, hidraw, 4}, {&ReadUsbNode, hub, 4}, {&ReadUsbNode, root, 3}, {list, "all", 6}};
  const auto factsOf = [](const NodeFacts& node) {
    return std::tuple(node.deviceId, node.hardwareIds, node.locationPath, node.locationInfo,
                      node.hasInterruptOut);
  };
  for (const auto& row : rows) {
    NodeFacts whole;
    ASSERT_TRUE(row.read(row.folder, whole)) << row.folder;
    for (int spare = 0; spare <= row.needed; ++spare) {
      NodeFacts node;
      const Status status = WithDescriptors(spare, [&] { return row.read(row.folder, node); });
      EXPECT_EQ(spare == row.needed ? 0 : EMFILE, CodeOf(status)) << row.folder << spare;
      EXPECT_EQ(factsOf(status ? whole : node), factsOf(node));
    }
  }
}

TEST_F(DeviceTreeTest, WithoutAnyDescriptorKnownNodesKeepTheirNumbers) {
  kernel.Plug("3");
  const std::string hub = kernel.Path(kernel.UsbFolder("3")), root = hub.substr(0, hub.rfind('/'));
  CNodeRegistry registry;
  DevInst number = 0, rootNumber = 0;
  const auto look = [&] {
    registry.DropAbsent();
    const Status status = registry.NumberOf(hub, &ReadUsbNode, number);
    return registry.Find(number) != nullptr ? status : NoDevice();
  };
  const auto lookAtRoot = [&] { return registry.NumberOf(root, &ReadUsbNode, rootNumber); };
  EXPECT_EQ(0, CodeOf(look()));
  EXPECT_EQ(0, CodeOf(WithDescriptors(0, look)));
  EXPECT_EQ(1u, number);
  EXPECT_EQ(EMFILE, CodeOf(WithDescriptors(0, lookAtRoot)));
  EXPECT_EQ(0, CodeOf(lookAtRoot()));
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
  const auto local = [] {
    const std::time_t seconds = std::time(nullptr);
    const std::tm now = *std::localtime(&seconds);
    return std::tuple(now.tm_year + 1900, now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min,
                      now.tm_sec);
  };
  const std::uint64_t start = ClockMs();
  const auto earliest = local();
  SleepMs(2);
  const LocalTime now = GetLocalTime();
  EXPECT_THAT(std::tuple(now.year, now.month, now.day, now.hour, now.minute, now.second),
              ::testing::AnyOf(earliest, local()));
  EXPECT_LE(start + 2, ClockMs());
}

}  // namespace

}  // namespace qzhid::platform::test
