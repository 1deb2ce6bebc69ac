// What every platform backend must do. Uses the seam and the bench only.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "platform/seam_bench.h"

namespace qzhid::platform::test {

namespace {

class SeamTest : public ::testing::Test {
 protected:
  static std::wstring Text(DevInst node, TextProperty property) {
    std::wstring text;
    return GetTextProperty(node, property, 4096, text) ? text : std::wstring();
  }
  static std::wstring First(const std::wstring& list) { return list.substr(0, list.find(L'\0')); }

  static std::vector<DevInst> PresentNodes() {
    NodeSet set;
    std::vector<DevInst> nodes;
    EXPECT_TRUE(OpenNodeSet(HidClassGuid(), set));
    DevInst node = 0;
    for (std::uint32_t i = 0; EnumNode(set, i, node); ++i) nodes.push_back(node);
    return nodes;
  }

  /// The present HID node whose first hardware id that is; 0 when there is none.
  static DevInst FindNode(const std::wstring& hardwareId) {
    for (const DevInst node : PresentNodes()) {
      if (First(Text(node, TextProperty::HardwareIds)) == hardwareId) return node;
    }
    return 0;
  }
  DevInst HubNode(std::size_t hub) { return FindNode(hubs.at(hub).hidHardwareId); }
  static DevInst ParentOf(DevInst node) {
    DevInst parent = 0;
    return GetParent(node, parent) ? parent : 0;
  }

  static std::wstring PathOf(DevInst wanted) {
    NodeSet set;
    EXPECT_TRUE(OpenNodeSet(HidClassGuid(), set));
    DevInst node = 0;
    for (std::uint32_t i = 0; EnumNode(set, i, node); ++i) {
      DeviceInterface found;
      std::wstring path;
      if (node != wanted) continue;
      EXPECT_TRUE(FirstInterface(set, i, found));
      EXPECT_EQ(wanted, found.devInst);
      EXPECT_TRUE(InterfacePath(set, found, path));
      return path;
    }
    return {};
  }
  static HidDevice Open(DevInst node) {
    HidDevice device;
    EXPECT_TRUE(OpenHidDevice(PathOf(node), device));
    return device;
  }

  /// Sends a request on report channel 1.
  static Status Send(const HidDevice& device, const HidCaps& caps,
                     std::vector<std::uint8_t> header) {
    header.insert(header.begin(), 0);
    header.resize(caps.outputReportLength);
    return SetOutputReport(device, header.data(), caps.outputReportLength);
  }
  static Status Enable(const HidDevice& device, const HidCaps& caps) {
    return Send(device, caps, {0x40, 0x02, 1, 0, 0x7C, 0x2E, 0, 0});
  }

  const std::unique_ptr<ISeamBench> bench = MakeSeamBench();
  const std::vector<ExpectedDevice> hubs = bench->Hubs();
};

TEST_F(SeamTest, NodesOfAClass) {
  EXPECT_NE(0u, FindNode(bench->OtherHardwareId()));
  std::vector<DevInst> nodes = PresentNodes();
  EXPECT_EQ(nodes, PresentNodes()) << "numbers and order stay";
  std::sort(nodes.begin(), nodes.end());
  EXPECT_EQ(nodes.end(), std::adjacent_find(nodes.begin(), nodes.end()));
  EXPECT_EQ(0, std::count(nodes.begin(), nodes.end(), 0u));

  NodeSet set;
  DevInst node = 0;
  Guid unknown = HidClassGuid();
  unknown.data4[7] ^= 1;
  ASSERT_TRUE(OpenNodeSet(unknown, set)) << "an empty set is a success";
  DeviceInterface found;
  EXPECT_FALSE(EnumNode(set, 0, node));
  EXPECT_FALSE(FirstInterface(set, 0, found));
  EXPECT_TRUE(CloseNodeSet(set));
  EXPECT_EQ(nullptr, set);
  EXPECT_FALSE(EnumNode(set, 0, node)) << "no set";
}

TEST_F(SeamTest, TextsAndNumbersOfNodes) {
  for (const ExpectedDevice& hub : hubs) {
    const DevInst hid = FindNode(hub.hidHardwareId);
    ASSERT_NE(0u, hid);
    const DevInst usb = ParentOf(hid);
    EXPECT_EQ(hub.usbHardwareId, First(Text(usb, TextProperty::HardwareIds)));
    std::uint32_t address = 0;
    EXPECT_TRUE(GetAddressProperty(usb, address));
    EXPECT_EQ(hub.port, address);
    const std::wstring where = Text(usb, TextProperty::LocationInfo);
    ASSERT_GE(where.size(), 11u);
    EXPECT_EQ(L"Port_#000" + std::to_wstring(hub.port), where.substr(0, 10));
    EXPECT_EQ(where.size() - 1, where.find(L'\0')) << "one terminator";
    const std::wstring path = First(Text(usb, TextProperty::LocationPaths));
    const std::wstring end = L"#USB(" + std::to_wstring(hub.port) + L")";
    ASSERT_GT(path.size(), end.size());
    EXPECT_EQ(end, path.substr(path.size() - end.size()));
  }
}

TEST_F(SeamTest, ParentsUpToTheRootHub) {
  for (const ExpectedDevice& hub : hubs) {
    DevInst node = ParentOf(FindNode(hub.hidHardwareId));
    for (std::uint32_t level = 1; level <= hub.level; ++level) {
      node = ParentOf(node);
      std::wstring id;
      ASSERT_TRUE(GetDeviceIdW(node, 200, id));
      EXPECT_EQ(level == hub.level, id.find(L"ROOT_HUB") != std::wstring::npos) << level;
    }
    int above = 0;
    while ((node = ParentOf(node)) != 0 && above < 8) ++above;
    EXPECT_LT(above, 8) << "the tree has a top";
  }
}

TEST_F(SeamTest, CapacitiesAreExact) {
  const DevInst node = HubNode(0);
  std::string narrow;
  std::wstring wide;
  ASSERT_TRUE(GetDeviceIdA(node, 1024, narrow));
  ASSERT_TRUE(GetDeviceIdW(node, narrow.size() + 1, wide));
  EXPECT_EQ(narrow, ToNarrow(wide));
  EXPECT_EQ(0u, wide.find(hubs[0].hidHardwareId.substr(0, 21)));
  EXPECT_FALSE(GetDeviceIdW(node, narrow.size(), wide));
  EXPECT_FALSE(GetDeviceIdA(node, narrow.size(), narrow));

  std::wstring ids;
  ASSERT_TRUE(GetTextProperty(node, TextProperty::HardwareIds, 4096, ids));
  ASSERT_GE(ids.size(), 2u);
  EXPECT_EQ(std::wstring(2, L'\0'), ids.substr(ids.size() - 2)) << "last string, then the list";
  EXPECT_NE(std::wstring::npos, ids.find(hubs[0].hidHardwareId.substr(0, 21) + L'\0'));
  const std::size_t bytes = ids.size() * 2;
  EXPECT_TRUE(GetTextProperty(node, TextProperty::HardwareIds, bytes, ids));
  EXPECT_FALSE(GetTextProperty(node, TextProperty::HardwareIds, bytes - 2, ids));
}

TEST_F(SeamTest, OpenedDevices) {
  for (const ExpectedDevice& hub : hubs) {
    const HidDevice device = Open(FindNode(hub.hidHardwareId));
    ASSERT_NE(nullptr, device);
    Event event;
    EXPECT_TRUE(CreateReportEvent(event));
    EXPECT_NE(nullptr, event);
    PreparsedData preparsed;
    HidCaps caps;
    ASSERT_TRUE(GetPreparsedData(device, preparsed));
    ASSERT_TRUE(GetCaps(preparsed, caps));
    EXPECT_EQ(hub.caps.outputReportLength, caps.outputReportLength);
    EXPECT_EQ(hub.caps.inputReportLength, caps.inputReportLength);

    std::wstring text;
    const std::size_t bytes = (hub.productText.size() + 1) * 2;
    EXPECT_TRUE(GetIndexedString(device, 52, bytes, text));
    EXPECT_EQ(hub.productText, text);
    EXPECT_FALSE(GetIndexedString(device, 52, bytes - 2, text));
    EXPECT_FALSE(GetIndexedString(device, 199, 512, text)) << "no such string";
  }
}

TEST_F(SeamTest, Reports) {
  for (const ExpectedDevice& hub : hubs) {
    const HidDevice device = Open(FindNode(hub.hidHardwareId));
    const std::vector<std::uint8_t> status = {0xC0, 0x09, 0, 0, 0, 0, 20, 0};
    EXPECT_FALSE(Send(device, hub.caps, status)) << "refused before it is enabled";
    ASSERT_TRUE(Enable(device, hub.caps));
    ASSERT_TRUE(Send(device, hub.caps, status));
    std::vector<std::uint8_t> answer(hub.caps.inputReportLength + 3u, 0xEE);
    answer[0] = 0;
    ASSERT_TRUE(GetInputReport(device, answer.data(), hub.caps.inputReportLength));
    EXPECT_EQ(hub.vid >> 8, answer[1]);
    EXPECT_EQ(hub.vid & 0xFF, answer[2]);
    EXPECT_EQ(0, answer[hub.caps.inputReportLength - 1u]);
    EXPECT_EQ(0xEE, answer[hub.caps.inputReportLength]) << "nothing behind the report";
    EXPECT_FALSE(Send(device, {5, 0}, {})) << "another length than the declared one";
  }
}

TEST_F(SeamTest, AReturnedDeviceIsANewInstance) {
  const DevInst before = HubNode(0);
  const DevInst usb = ParentOf(before);
  const std::wstring place = Text(usb, TextProperty::LocationPaths);
  const std::wstring path = PathOf(before);
  NodeSet set;
  ASSERT_TRUE(OpenNodeSet(HidClassGuid(), set));
  const HidDevice device = Open(before);
  ASSERT_TRUE(Enable(device, hubs[0].caps));

  bench->Unplug(0);
  EXPECT_EQ(0u, HubNode(0));
  HidDevice again;
  std::wstring text;
  EXPECT_FALSE(OpenHidDevice(path, again));
  EXPECT_FALSE(Enable(device, hubs[0].caps));
  EXPECT_FALSE(GetDeviceIdW(before, 200, text));
  EXPECT_FALSE(GetTextProperty(usb, TextProperty::LocationPaths, 4096, text));
  EXPECT_EQ(0u, ParentOf(before));
  DevInst listed = 0;
  EXPECT_TRUE(EnumNode(set, 0, listed)) << "a set is a snapshot";

  bench->Plug(0);
  const DevInst after = HubNode(0);
  ASSERT_NE(0u, after);
  EXPECT_NE(before, after);
  EXPECT_NE(usb, ParentOf(after));
  EXPECT_EQ(place, Text(ParentOf(after), TextProperty::LocationPaths));
  EXPECT_FALSE(Enable(device, hubs[0].caps)) << "the old handle stays dead";
  EXPECT_TRUE(Enable(Open(after), hubs[0].caps));
}

TEST_F(SeamTest, WhatIsNotThereFails) {
  std::wstring text;
  std::uint32_t address = 0;
  EXPECT_FALSE(GetDeviceIdW(0, 200, text));
  EXPECT_FALSE(GetAddressProperty(0x7FFFFFFF, address));
  EXPECT_FALSE(GetTextProperty(0, TextProperty::HardwareIds, 4096, text));
  HidDevice device;
  for (const wchar_t* path : {L"", L"nowhere", L"virtualhub:", L"/nowhere/hidraw0"}) {
    EXPECT_FALSE(OpenHidDevice(path, device));
    EXPECT_EQ(nullptr, device);
  }
  std::uint8_t report[321] = {};
  PreparsedData preparsed;
  EXPECT_FALSE(SetOutputReport(device, report, sizeof(report)));
  EXPECT_FALSE(GetInputReport(device, report, sizeof(report)));
  EXPECT_FALSE(GetIndexedString(device, 52, 512, text));
  EXPECT_FALSE(GetPreparsedData(device, preparsed));
}

TEST_F(SeamTest, KernelServices) {
  const std::uint64_t before = ClockMs();
  SleepMs(20);
  EXPECT_GE(ClockMs() - before, 20u);
  const LocalTime now = GetLocalTime();
  EXPECT_GE(now.year, 2024);
  EXPECT_TRUE(now.month >= 1 && now.month <= 12 && now.day >= 1 && now.day <= 31);
  EXPECT_TRUE(now.hour >= 0 && now.hour < 24 && now.minute >= 0 && now.minute < 60);
  EXPECT_EQ(bench->NativeArchitecture(), NativeArchitecture());
  const HostDescription host = DescribeHost();
  EXPECT_EQ(bench->NativeArchitecture(), host.architecture);
  EXPECT_TRUE(host.hasVersionStore);
  EXPECT_FALSE(host.productName.value_or("").empty());
  EXPECT_GT(host.major, 0u);
  DebugOutput(L"seam test\n");
  std::string library;
  ASSERT_TRUE(GetLibraryPath(library));
  EXPECT_TRUE(PathExists(library.c_str()));
}

TEST_F(SeamTest, Paths) {
  const std::string folder = ::testing::TempDir();
  const std::string file = folder + "seam.txt";
  std::ofstream(file) << "x";
  struct {
    std::string path;
    bool exists, folder, writable;
  } const cases[] = {{folder, true, true, true},
                     {file, true, false, true},
                     {folder + "not-there", false, false, false},
                     {"", false, false, false}};
  for (const auto& c : cases) {
    EXPECT_EQ(c.exists, PathExists(c.path.c_str())) << c.path;
    EXPECT_EQ(c.folder, IsDirectory(c.path.c_str())) << c.path;
    EXPECT_EQ(c.writable, IsReadableAndWritable(c.path.c_str())) << c.path;
  }
  EXPECT_EQ(std::filesystem::path::preferred_separator, PathSeparator());
  EXPECT_EQ("USB(3)", ToNarrow(L"USB(3)"));
}

}  // namespace

}  // namespace qzhid::platform::test
