// What every platform backend must do. Uses the seam and the bench only.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <fstream>

#include "platform/seam_bench.h"

namespace qzhid::platform::test {

namespace {

using enum TextProperty;
using Bytes = std::vector<std::uint8_t>;

class SeamTest : public ::testing::Test {
 protected:
  static std::wstring Text(DevInst node, TextProperty property) {
    std::wstring text;
    return GetTextProperty(node, property, 4096, text) ? text : std::wstring();
  }
  static std::wstring First(const std::wstring& list) { return list.substr(0, list.find(L'\0')); }
  static DevInst ParentOf(DevInst node) {
    DevInst parent = 0;
    return GetParent(node, parent) ? parent : 0;
  }
  static std::vector<DevInst> PresentNodes() {
    NodeSet set;
    std::vector<DevInst> nodes;
    EXPECT_TRUE(OpenNodeSet(HidClassGuid(), set));
    DevInst node = 0;
    for (std::uint32_t i = 0; EnumNode(set, i, node); ++i) nodes.push_back(node);
    return nodes;
  }

  /// The HID node of a hub; 0 when it is not present.
  static DevInst NodeOf(const ExpectedHub& hub) {
    for (const DevInst node : PresentNodes()) {
      if (First(Text(node, HardwareIds)) == L"HID\\" + hub.hardwareId) return node;
    }
    return 0;
  }
  static std::wstring PathOf(DevInst node) {
    const std::vector<DevInst> nodes = PresentNodes();
    const auto index = std::find(nodes.begin(), nodes.end(), node) - nodes.begin();
    NodeSet set;
    DeviceInterface found;
    std::wstring path;
    EXPECT_TRUE(OpenNodeSet(HidClassGuid(), set));
    EXPECT_TRUE(FirstInterface(set, static_cast<std::uint32_t>(index), found));
    EXPECT_TRUE(InterfacePath(set, found, path));
    EXPECT_EQ(node, found.devInst);
    return path;
  }
  static HidDevice Open(DevInst node) {
    HidDevice device;
    EXPECT_TRUE(OpenHidDevice(PathOf(node), device));
    return device;
  }

  /// Sends a request on report channel 1.
  static Status Send(const HidDevice& device, std::uint16_t length, const Bytes& header) {
    Bytes report(length);
    std::copy(header.begin(), header.end(), report.begin() + 1);
    return SetOutputReport(device, report.data(), length);
  }
  static Status Enable(const HidDevice& device, std::uint16_t length) {
    return Send(device, length, {0x40, 0x02, 1, 0, 0x7C, 0x2E, 0, 0});
  }

  const std::unique_ptr<ISeamBench> bench = MakeSeamBench();
  const std::vector<ExpectedHub> hubs = bench->Hubs();
};

TEST_F(SeamTest, TheNodesOfAClassAreEnumeratedInAnOrderThatStays) {
  const std::vector<DevInst> nodes = PresentNodes();
  EXPECT_EQ(nodes, PresentNodes());
  EXPECT_NE(0u, NodeOf({L"VID_1234&PID_5678&REV_0100", {}, {}}));

  NodeSet set;
  DevInst node = 0;
  Guid unknown = HidClassGuid();
  unknown.data4[7] ^= 1;
  ASSERT_TRUE(OpenNodeSet(unknown, set)) << "an empty set is a success";
  EXPECT_FALSE(EnumNode(set, 0, node));
  EXPECT_TRUE(CloseNodeSet(set));
  EXPECT_FALSE(set);
  EXPECT_FALSE(EnumNode(set, 0, node)) << "no set";
}

TEST_F(SeamTest, ANodeHasItsIdsAndItsPlaceAndParentsUpToTheRootHub) {
  for (const ExpectedHub& hub : hubs) {
    const DevInst usb = ParentOf(NodeOf(hub));
    EXPECT_EQ(L"USB\\" + hub.hardwareId, First(Text(usb, HardwareIds)));
    const std::wstring port = std::to_wstring(hub.port), where = Text(usb, LocationInfo);
    std::uint32_t address = 0;
    EXPECT_TRUE(GetAddressProperty(usb, address));
    EXPECT_EQ(hub.port, address);
    EXPECT_EQ(L"Port_#000" + port, where.substr(0, 10));
    EXPECT_EQ(where.size() - 1, where.find(L'\0')) << "one terminator";
    const std::wstring path = First(Text(usb, LocationPaths));
    EXPECT_EQ(L"#USB(" + port + L")", path.substr(path.rfind(L'#')));

    DevInst node = usb;
    for (std::uint32_t level = 1; level <= hub.level; ++level) {
      node = ParentOf(node);
      std::wstring id;
      ASSERT_TRUE(GetDeviceIdW(node, 200, id));
      EXPECT_EQ(level == hub.level, id.find(L"ROOT_HUB") != std::wstring::npos) << level;
    }
  }
}

TEST_F(SeamTest, CapacitiesOfTextsAreExact) {
  const DevInst node = NodeOf(hubs[0]);
  std::string narrow;
  std::wstring wide, ids = Text(node, HardwareIds);
  ASSERT_TRUE(GetDeviceIdA(node, 1024, narrow));
  ASSERT_TRUE(GetDeviceIdW(node, narrow.size() + 1, wide));
  EXPECT_EQ(narrow, ToNarrow(wide));
  EXPECT_EQ(0u, wide.find(L"HID\\VID_2E7C&PID_0818"));
  EXPECT_FALSE(GetDeviceIdW(node, narrow.size(), wide));
  EXPECT_FALSE(GetDeviceIdA(node, narrow.size(), narrow));
  EXPECT_EQ(std::wstring(2, L'\0'), ids.substr(ids.size() - 2)) << "last string, then the list";
  const std::size_t bytes = ids.size() * 2;
  EXPECT_TRUE(GetTextProperty(node, HardwareIds, bytes, ids));
  EXPECT_FALSE(GetTextProperty(node, HardwareIds, bytes - 2, ids));
}

TEST_F(SeamTest, AnOpenDeviceReportsItsLengthsAndItsStringAndExchangesReports) {
  for (const ExpectedHub& hub : hubs) {
    const HidDevice device = Open(NodeOf(hub));
    Event event;
    PreparsedData preparsed;
    HidCaps caps;
    EXPECT_TRUE(CreateReportEvent(event));
    EXPECT_TRUE(event);
    ASSERT_TRUE(GetPreparsedData(device, preparsed));
    ASSERT_TRUE(GetCaps(preparsed, caps));
    EXPECT_EQ(std::pair(hub.caps.outputReportLength, hub.caps.inputReportLength),
              std::pair(caps.outputReportLength, caps.inputReportLength));

    std::wstring text;
    const std::size_t bytes = (hub.productText.size() + 1) * 2;
    EXPECT_TRUE(GetIndexedString(device, 52, bytes, text));
    EXPECT_EQ(hub.productText, text);
    EXPECT_FALSE(GetIndexedString(device, 52, bytes - 2, text));
    EXPECT_FALSE(GetIndexedString(device, 199, 512, text)) << "no such string";

    const Bytes status = {0xC0, 0x09, 0, 0, 0, 0, 20, 0};
    EXPECT_FALSE(Send(device, caps.outputReportLength, status)) << "refused until it is enabled";
    ASSERT_TRUE(Enable(device, caps.outputReportLength));
    ASSERT_TRUE(Send(device, caps.outputReportLength, status));
    Bytes answer(caps.inputReportLength + 3u, 0xEE);
    answer[0] = 0;
    ASSERT_TRUE(GetInputReport(device, answer.data(), caps.inputReportLength));
    EXPECT_EQ(std::stoi(hub.hardwareId.substr(4, 4), nullptr, 16), answer[1] * 256 + answer[2]);
    EXPECT_EQ(0xEE, answer[caps.inputReportLength]) << "nothing after the report";
    EXPECT_FALSE(Enable(device, 9)) << "another length than the declared one";
  }
}

TEST_F(SeamTest, AHandleEndsWithTheStayOfItsDeviceWhateverNumberThatHasWhenItReturns) {
  const std::uint16_t length = hubs[0].caps.outputReportLength;
  const bool keepsNumbers = bench->KeepsNumbers();
  const DevInst before = NodeOf(hubs[0]), usb = ParentOf(before);
  const std::wstring place = Text(usb, LocationPaths), path = PathOf(before);
  const HidDevice device = Open(before);
  ASSERT_TRUE(Enable(device, length));

  bench->Unplug();
  HidDevice again;
  std::wstring text;
  EXPECT_EQ(0u, NodeOf(hubs[0]));
  EXPECT_FALSE(OpenHidDevice(path, again));
  EXPECT_FALSE(Enable(device, length));
  EXPECT_FALSE(GetDeviceIdW(before, 200, text));
  EXPECT_EQ(0u, ParentOf(before));
  EXPECT_EQ(L"", Text(usb, LocationPaths));

  bench->Plug();
  const DevInst after = NodeOf(hubs[0]), usbAfter = ParentOf(after);
  const HidDevice second = Open(after);
  EXPECT_EQ(keepsNumbers, after == before);
  EXPECT_EQ(keepsNumbers, usbAfter == usb);
  EXPECT_EQ(place, Text(usbAfter, LocationPaths));
  EXPECT_FALSE(Enable(device, length)) << "the old handle stays dead";
  EXPECT_TRUE(Enable(second, length));

  bench->Unplug();
  bench->Plug();  // and nobody has looked in between
  EXPECT_EQ(keepsNumbers, GetDeviceIdW(after, 200, text).ok);
  EXPECT_EQ(keepsNumbers, GetDeviceIdW(usbAfter, 200, text).ok);
  EXPECT_EQ(keepsNumbers, ParentOf(NodeOf(hubs[0])) == usbAfter);
  EXPECT_FALSE(Enable(second, length));
}

TEST_F(SeamTest, WhatIsNotThereFails) {
  std::wstring text;
  std::uint32_t address = 0;
  EXPECT_FALSE(GetDeviceIdW(0, 200, text));
  EXPECT_FALSE(GetAddressProperty(0x7FFFFFFF, address));
  EXPECT_FALSE(GetTextProperty(0, HardwareIds, 4096, text));
  HidDevice device;
  for (const wchar_t* path : {L"", L"nowhere", L"virtualhub:", L"/nowhere/hidraw0"}) {
    EXPECT_FALSE(OpenHidDevice(path, device));
    EXPECT_FALSE(device);
  }
  std::uint8_t report[321] = {};
  PreparsedData preparsed;
  EXPECT_FALSE(SetOutputReport(device, report, 321));
  EXPECT_FALSE(GetInputReport(device, report, 321));
  EXPECT_FALSE(GetIndexedString(device, 52, 512, text));
  EXPECT_FALSE(GetPreparsedData(device, preparsed));
}

TEST_F(SeamTest, TheSystemReportsTheTimeAndDescribesTheHost) {
  const std::uint64_t before = ClockMs();
  SleepMs(20);
  EXPECT_GE(ClockMs() - before, 20u);
  EXPECT_LE(2024, GetLocalTime().year);
  const HostDescription host = DescribeHost();
  EXPECT_NE(Architecture::Unknown, host.architecture);
  EXPECT_EQ(NativeArchitecture(), host.architecture);
  EXPECT_TRUE(host.hasVersionStore);
  EXPECT_LT(0u, host.major);
  EXPECT_NE("", host.productName.value_or(""));
  DebugOutput(L"seam test\n");
}

TEST_F(SeamTest, PathsSayWhatIsThereAndOnlyRegularFilesAreRead) {
  const std::string folder = ::testing::TempDir(), file = folder + "seam.bin";
  const std::string contents("\r\n\x1A\0\n", 5),
      none = "none", device = PathSeparator() == '/' ? "/dev/null" : "NUL";
  std::ofstream(file, std::ios::binary) << contents;
  const struct {
    std::string path;
    std::array<bool, 3> traits;
    std::string contents;
  } rows[] = {{folder, {true, true, true}, none},
              {file, {true, false, true}, contents},
              {folder + "not-there", {false, false, false}, none},
              {"", {false, false, false}, none}};
  std::string library;
  EXPECT_TRUE(GetLibraryPath(library));
  EXPECT_TRUE(PathExists(library.c_str()));
  for (const auto& row : rows) {
    const char* const path = row.path.c_str();
    Bytes bytes(none.begin(), none.end());
    EXPECT_EQ(row.traits,
              (std::array{PathExists(path), IsDirectory(path), IsReadableAndWritable(path)}));
    EXPECT_EQ(row.contents != none, ReadRegularFile(path, bytes).ok) << path;
    EXPECT_EQ(row.contents, std::string(bytes.begin(), bytes.end())) << path;
  }
  Bytes bytes;
  EXPECT_FALSE(ReadRegularFile(device.c_str(), bytes));
}

}  // namespace

}  // namespace qzhid::platform::test
