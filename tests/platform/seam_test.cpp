// What every platform backend must do. Uses the seam and the bench only.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <vector>

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

TEST_F(SeamTest, TheNodesOfAClassAreEnumeratedInAnOrderThatStays) {
  EXPECT_NE(0u, FindNode(bench->OtherHardwareId()));
  const std::vector<DevInst> nodes = PresentNodes();
  EXPECT_EQ(nodes, PresentNodes()) << "numbers and order stay";

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
  for (const ExpectedDevice& hub : hubs) {
    const DevInst usb = ParentOf(FindNode(hub.hidHardwareId));
    EXPECT_EQ(hub.usbHardwareId, First(Text(usb, TextProperty::HardwareIds)));
    const std::wstring port = std::to_wstring(hub.port);
    const std::wstring where = Text(usb, TextProperty::LocationInfo);
    std::uint32_t address = 0;
    EXPECT_TRUE(GetAddressProperty(usb, address));
    EXPECT_EQ(hub.port, address);
    EXPECT_EQ(L"Port_#000" + port, where.substr(0, 10));
    EXPECT_EQ(where.size() - 1, where.find(L'\0')) << "one terminator";
    const std::wstring path = First(Text(usb, TextProperty::LocationPaths));
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
  const DevInst node = HubNode(0);
  std::string narrow;
  std::wstring wide, ids;
  ASSERT_TRUE(GetDeviceIdA(node, 1024, narrow));
  ASSERT_TRUE(GetDeviceIdW(node, narrow.size() + 1, wide));
  EXPECT_EQ(narrow, ToNarrow(wide));
  EXPECT_EQ(0u, wide.find(hubs[0].hidHardwareId.substr(0, 21)));
  EXPECT_FALSE(GetDeviceIdW(node, narrow.size(), wide));
  EXPECT_FALSE(GetDeviceIdA(node, narrow.size(), narrow));

  ASSERT_TRUE(GetTextProperty(node, TextProperty::HardwareIds, 4096, ids));
  EXPECT_EQ(std::wstring(2, L'\0'), ids.substr(ids.size() - 2)) << "last string, then the list";
  EXPECT_NE(std::wstring::npos, ids.find(hubs[0].hidHardwareId.substr(0, 21) + L'\0'));
  const std::size_t bytes = ids.size() * 2;
  EXPECT_TRUE(GetTextProperty(node, TextProperty::HardwareIds, bytes, ids));
  EXPECT_FALSE(GetTextProperty(node, TextProperty::HardwareIds, bytes - 2, ids));
}

TEST_F(SeamTest, AnOpenedDeviceReportsItsLengthsAndItsStringAndExchangesReports) {
  for (const ExpectedDevice& hub : hubs) {
    const HidDevice device = Open(FindNode(hub.hidHardwareId));
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

    const std::vector<std::uint8_t> status = {0xC0, 0x09, 0, 0, 0, 0, 20, 0};
    EXPECT_FALSE(Send(device, caps, status)) << "refused before it is enabled";
    ASSERT_TRUE(Enable(device, caps));
    ASSERT_TRUE(Send(device, caps, status));
    std::vector<std::uint8_t> answer(caps.inputReportLength + 3u, 0xEE);
    answer[0] = 0;
    ASSERT_TRUE(GetInputReport(device, answer.data(), caps.inputReportLength));
    EXPECT_EQ(hub.vid, answer[1] * 256 + answer[2]);
    EXPECT_EQ(0xEE, answer[caps.inputReportLength]) << "nothing after the report";
    EXPECT_FALSE(Send(device, {5, 0}, {})) << "another length than the declared one";
  }
}

TEST_F(SeamTest, AHandleEndsWithTheStayOfItsDeviceWhateverNumberThatHasWhenItReturns) {
  const DevInst before = HubNode(0);
  const DevInst usb = ParentOf(before);
  const std::wstring place = Text(usb, TextProperty::LocationPaths);
  const std::wstring path = PathOf(before);
  const HidDevice device = Open(before);
  ASSERT_TRUE(Enable(device, hubs[0].caps));

  bench->Unplug(0);
  EXPECT_EQ(0u, HubNode(0));
  HidDevice again;
  std::wstring text;
  EXPECT_FALSE(OpenHidDevice(path, again));
  EXPECT_FALSE(Enable(device, hubs[0].caps));
  EXPECT_FALSE(GetDeviceIdW(before, 200, text));
  EXPECT_EQ(0u, ParentOf(before));
  EXPECT_FALSE(GetTextProperty(usb, TextProperty::LocationPaths, 4096, text));

  bench->Plug(0);
  const DevInst after = HubNode(0);
  const bool keepsNumbers = bench->KeepsNumbers();
  EXPECT_NE(0u, after);
  EXPECT_EQ(keepsNumbers, after == before);
  EXPECT_EQ(keepsNumbers, ParentOf(after) == usb);
  EXPECT_EQ(place, Text(ParentOf(after), TextProperty::LocationPaths));
  EXPECT_FALSE(Enable(device, hubs[0].caps)) << "the old handle stays dead";
  EXPECT_TRUE(Enable(Open(after), hubs[0].caps));

  const DevInst usbAfter = ParentOf(after);
  const HidDevice second = Open(after);
  bench->Unplug(0);
  bench->Plug(0);  // and nobody has looked in between
  EXPECT_EQ(keepsNumbers, GetDeviceIdW(after, 200, text).ok);
  EXPECT_EQ(keepsNumbers, GetDeviceIdW(usbAfter, 200, text).ok);
  EXPECT_EQ(keepsNumbers, ParentOf(HubNode(0)) == usbAfter);
  EXPECT_FALSE(Enable(second, hubs[0].caps));
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
    EXPECT_FALSE(device);
  }
  std::uint8_t report[321] = {};
  PreparsedData preparsed;
  EXPECT_FALSE(SetOutputReport(device, report, 321));
  EXPECT_FALSE(GetInputReport(device, report, 321));
  EXPECT_FALSE(GetIndexedString(device, 52, 512, text));
  EXPECT_FALSE(GetPreparsedData(device, preparsed));
}

TEST_F(SeamTest, TheKernelReportsTheTimeTheProcessorAndTheHost) {
  const std::uint64_t before = ClockMs();
  SleepMs(20);
  EXPECT_GE(ClockMs() - before, 20u);
  const LocalTime now = GetLocalTime();
  EXPECT_LE(2024, now.year);
  EXPECT_LE(1, now.month);
  EXPECT_GE(12, now.month);
  EXPECT_GT(24, now.hour);
  const HostDescription host = DescribeHost();
  EXPECT_EQ(bench->NativeArchitecture(), NativeArchitecture());
  EXPECT_EQ(bench->NativeArchitecture(), host.architecture);
  EXPECT_TRUE(host.hasVersionStore);
  EXPECT_LT(0u, host.major);
  EXPECT_NE("", host.productName.value_or(""));
  DebugOutput(L"seam test\n");
  std::string library;
  EXPECT_TRUE(GetLibraryPath(library));
  EXPECT_TRUE(PathExists(library.c_str()));
}

TEST_F(SeamTest, PathsSayWhatIsThereAndWhatItIs) {
  const std::string folder = ::testing::TempDir();
  const std::string file = folder + "seam.txt";
  std::ofstream(file) << "x";
  const auto traits = [](const std::string& text) {
    const char* const path = text.c_str();
    return std::array{PathExists(path), IsDirectory(path), IsReadableAndWritable(path)};
  };
  EXPECT_EQ((std::array{true, true, true}), traits(folder));
  EXPECT_EQ((std::array{true, false, true}), traits(file));
  for (const auto& path : {folder + "not-there", std::string()}) {
    EXPECT_EQ((std::array{false, false, false}), traits(path));
  }
  EXPECT_EQ(std::filesystem::path::preferred_separator, PathSeparator());
}

TEST_F(SeamTest, OnlyRegularFilesAreRead) {
  const std::string folder = ::testing::TempDir(), file = folder + "seam.bin";
  std::vector<std::uint8_t> bytes = {1};
  for (const std::string& contents : {std::string("\r\n\x1A\0\n", 5), std::string()}) {
    std::ofstream(file, std::ios::binary) << contents;
    EXPECT_TRUE(ReadRegularFile(file.c_str(), bytes));
    EXPECT_EQ(contents, std::string(bytes.begin(), bytes.end()));
  }
  bytes = {1};
  const std::string device = PathSeparator() == '/' ? "/dev/null" : "NUL";
  for (const std::string& path : {folder, folder + "not-there", std::string(), device}) {
    const Status status = ReadRegularFile(path.c_str(), bytes);
    EXPECT_FALSE(status.ok) << path;
    EXPECT_NE(0u, status.code) << path;
    EXPECT_EQ(std::vector<std::uint8_t>{1}, bytes);
  }
}

}  // namespace

}  // namespace qzhid::platform::test
