// What only the virtual backend does: system codes, faults, open handles, the settable host.
#include <gtest/gtest.h>

#include <cerrno>

#include "platform/platform.h"
#include "virtualhub/current_world.h"

namespace qzhid::platform::test {

namespace {

using virtualhub::Fault;
using virtualhub::HandleKind;

class VirtualBackendTest : public ::testing::Test {
 protected:
  ~VirtualBackendTest() override { virtualhub::UninstallWorld(); }

  void Install(const std::string& json) { world = &virtualhub::InstallWorld(json); }
  HidDevice Open(const char* name) {
    HidDevice device;
    EXPECT_TRUE(OpenHidDevice(L"virtualhub:" + std::to_wstring(world->HidInstance(name)), device));
    return device;
  }
  static std::uint32_t Code(const Status& status) { return status.ok ? 0xFFFFFFFF : status.code; }

  virtualhub::World* world = nullptr;
};

TEST_F(VirtualBackendTest, SystemCodes) {
  Install(R"({"devices": [{"name": "hub", "port": "1"}]})");
  const HidDevice device = Open("hub");
  const DevInst node = world->HidInstance("hub");
  std::uint8_t report[321] = {0, 0x40, 0x77};
  std::wstring text;
  std::uint32_t address = 0;
  HidDevice none;
  EXPECT_EQ(EPIPE, Code(SetOutputReport(device, report, 321)));
  EXPECT_EQ(EINVAL, Code(SetOutputReport(device, report, 320)));
  EXPECT_EQ(EBADF, Code(SetOutputReport(none, report, 321)));
  EXPECT_EQ(ENOENT, Code(GetTextProperty(node, TextProperty::LocationPaths, 4096, text)));
  EXPECT_EQ(ENOENT, Code(GetAddressProperty(node, address)));
  EXPECT_EQ(ENOBUFS, Code(GetDeviceIdW(node, 5, text)));
  EXPECT_EQ(ENOBUFS, Code(GetIndexedString(device, 52, 20, text)));
  EXPECT_EQ(ENODEV, Code(GetDeviceIdW(0, 5, text)));
  world->AddFault({.on = Fault::On::Output, .action = Fault::Action::Fail, .code = 0});
  world->AddFault({.on = Fault::On::Output, .nth = 2, .action = Fault::Action::Unplug});
  EXPECT_EQ(0u, Code(SetOutputReport(device, report, 321)));
  EXPECT_EQ(EPROTO, Code(SetOutputReport(device, report, 321)));
  EXPECT_EQ(ENODEV, Code(SetOutputReport(device, report, 321)));
}

TEST_F(VirtualBackendTest, EveryServiceCanFail) {
  Install(R"({"devices": [{"name": "hub", "port": "1"}]})");
  const DevInst node = world->HidInstance("hub");
  NodeSet set, otherSet;
  DeviceInterface found;
  std::wstring wide;
  std::string narrow;
  HidCaps caps;
  Event event;
  std::uint32_t number = 0;
  const HidDevice device = Open("hub");
  HidDevice otherDevice;
  PreparsedData preparsed, otherPreparsed;
  ASSERT_TRUE(OpenNodeSet(HidClassGuid(), set) && GetPreparsedData(device, preparsed));
  ASSERT_TRUE(FirstInterface(set, 0, found));
  const auto text = [&](TextProperty property) {
    return GetTextProperty(node, property, 4096, wide);
  };
  const std::pair<const char*, std::function<Status()>> services[] = {
      {"OpenNodeSet", [&] { return OpenNodeSet(HidClassGuid(), otherSet); }},
      {"EnumNode", [&] { return EnumNode(set, 0, number); }},
      {"FirstInterface", [&] { return FirstInterface(set, 0, found); }},
      {"InterfacePath", [&] { return InterfacePath(set, found, wide); }},
      {"OpenHidDevice",
       [&] { return OpenHidDevice(L"virtualhub:" + std::to_wstring(node), otherDevice); }},
      {"CreateReportEvent", [&] { return CreateReportEvent(event); }},
      {"GetPreparsedData", [&] { return GetPreparsedData(device, otherPreparsed); }},
      {"GetCaps", [&] { return GetCaps(preparsed, caps); }},
      {"GetIndexedString", [&] { return GetIndexedString(device, 52, 512, wide); }},
      {"GetParent", [&] { return GetParent(node, number); }},
      {"GetDeviceIdA", [&] { return GetDeviceIdA(node, 1024, narrow); }},
      {"GetDeviceIdW", [&] { return GetDeviceIdW(node, 200, wide); }},
      {"HardwareIds", [&] { return text(TextProperty::HardwareIds); }},
      {"LocationInfo", [&] { return text(TextProperty::LocationInfo); }},
      {"LocationPaths", [&] { return text(TextProperty::LocationPaths); }},
      {"GetAddressProperty", [&] { return GetAddressProperty(node, number); }},
      {"CloseNodeSet", [&] { return CloseNodeSet(set); }}};
  for (const auto& [name, call] : services) {
    world->AddFault({.on = Fault::On::Call, .service = name, .code = 4711});
    EXPECT_EQ(4711u, Code(call())) << name;
  }
  EXPECT_FALSE(otherSet || otherDevice || otherPreparsed || event || set);
}

TEST_F(VirtualBackendTest, OpenHandlesAreCounted) {
  Install(R"({"devices": [{"name": "hub", "port": "1"}]})");
  const auto open = [&] {
    std::vector<int> counts;
    for (const HandleKind kind : {HandleKind::HidDevice, HandleKind::Event, HandleKind::NodeSet,
                                  HandleKind::PreparsedData}) {
      counts.push_back(world->openHandles(kind));
    }
    return counts;
  };
  {
    const HidDevice device = Open("hub"), second = Open("hub");
    Event event;
    NodeSet set;
    PreparsedData preparsed;
    ASSERT_TRUE(CreateReportEvent(event) && OpenNodeSet(HidClassGuid(), set));
    ASSERT_TRUE(GetPreparsedData(device, preparsed));
    EXPECT_EQ((std::vector{2, 1, 1, 1}), open());
    EXPECT_TRUE(CloseNodeSet(set));
    EXPECT_EQ((std::vector{2, 1, 0, 1}), open());
  }
  EXPECT_EQ(std::vector<int>(4, 0), open());
}

TEST_F(VirtualBackendTest, HostAndDebugOutput) {
  Install(R"({"record": true, "host": {"product_name": null, "update_revision": 3155, "major": 6,
              "build": 9600, "architecture": "unknown"}})");
  HostDescription host = DescribeHost();
  EXPECT_TRUE(host.hasVersionStore);
  EXPECT_FALSE(host.productName.has_value());
  EXPECT_EQ(3155u, host.updateRevision);
  EXPECT_EQ(6u, host.major);
  EXPECT_EQ(9600u, host.build);
  EXPECT_EQ(Architecture::Unknown, host.architecture);
  world->AddFault({.on = Fault::On::Call, .service = "DescribeHost.UpdateRevision"});
  EXPECT_FALSE(DescribeHost().updateRevision.has_value());
  world->AddFault({.on = Fault::On::Call, .service = "DescribeHost.VersionStore"});
  host = DescribeHost();
  EXPECT_FALSE(host.hasVersionStore || host.updateRevision);
  const LocalTime now = GetLocalTime();
  EXPECT_EQ((std::array{2024, 3, 7, 9, 5, 2}),
            (std::array{now.year, now.month, now.day, now.hour, now.minute, now.second}));
  DebugOutput(L"Gr\u00F6\u00DFe");
  EXPECT_EQ(std::vector<std::string>{"Gr\xC3\xB6\xC3\x9F\x65"}, world->recorder().DebugTexts());
}

}  // namespace

}  // namespace qzhid::platform::test
