// What every platform backend must do. Uses the seam and the bench only.
#include <fstream>

#include "platform/seam_bench.h"
#include "platform/seam_calls.h"

namespace qzhid::platform::test {

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;
using enum TextProperty;
using Bytes = std::vector<std::uint8_t>;

class SeamTest : public ::testing::Test {
 protected:
  /// The HID node whose first hardware id that is, after "HID\\"; 0 when it is not present.
  static DevInst NodeOf(const std::string& hardwareId) {
    for (const DevInst node : PresentNodes()) {
      if (TextOf(node, HardwareIds).starts_with("HID\\" + hardwareId)) return node;
    }
    return 0;
  }
  static HidDevice Open(DevInst node) {
    HidDevice device;
    EXPECT_TRUE(OpenHidDevice(PathOf(node), device));
    return device;
  }
  /// Sends a request on report channel 1, which the hub enables for others.
  static bool Enable(const HidDevice& device, std::uint32_t length = 321) {
    Bytes report{0, 0x40, 0x02, 1, 0, 0x7C, 0x2E, 0, 0};
    report.resize(length);
    return SetOutputReport(device, report.data(), length).ok;
  }

  const SeamBench bench = MakeSeamBench();
  const std::string first = "VID_2E7C&PID_0818&REV_0100", second = "VID_1A2B&PID_3C4D&REV_0100";
};

TEST_F(SeamTest, TheNodesOfAClassAreEnumeratedInAnOrderThatStays) {
  const std::vector<DevInst> nodes = PresentNodes();
  EXPECT_EQ(nodes, PresentNodes());
  EXPECT_THAT(nodes, UnorderedElementsAre(NodeOf(first), NodeOf(second),
                                          NodeOf("VID_1234&PID_5678&REV_0100")));
  NodeSet set;
  DevInst node = 0;
  Guid unknown = HidClassGuid();
  unknown.data4[7] ^= 1;
  EXPECT_TRUE(OpenNodeSet(unknown, set)) << "an empty set is a success";
  EXPECT_FALSE(EnumNode(set, 0, node));
  EXPECT_TRUE(CloseNodeSet(set));
  EXPECT_FALSE(set);
  EXPECT_FALSE(EnumNode(set, 0, node)) << "no set";
}

TEST_F(SeamTest, ANodeHasItsIdsAndItsPlaceAndParentsUpToTheRootHub) {
  DevInst node = ParentOf(NodeOf(first));
  const std::string port = std::to_string(bench.port);
  std::uint32_t address = 0;
  EXPECT_THAT(TextOf(node, HardwareIds), StartsWith("USB\\" + first));
  EXPECT_TRUE(GetAddressProperty(node, address));
  EXPECT_EQ(bench.port, address);
  EXPECT_THAT(TextOf(node, LocationInfo), StartsWith("Port_#000" + port));
  EXPECT_THAT(TextOf(node, LocationPaths), HasSubstr("#USB(" + port + ")"));
  for (std::uint32_t level = 1; level <= bench.level; ++level) {
    node = ParentOf(node);
    std::wstring id;
    EXPECT_TRUE(GetDeviceIdW(node, 200, id));
    EXPECT_EQ(level == bench.level, id.find(L"ROOT_HUB") != std::wstring::npos) << level;
  }
}

TEST_F(SeamTest, CapacitiesOfTextsAreExact) {
  const DevInst node = NodeOf(first);
  std::string narrow;
  std::wstring wide, ids;
  EXPECT_TRUE(GetDeviceIdA(node, 1024, narrow));
  EXPECT_TRUE(GetDeviceIdW(node, narrow.size() + 1, wide));
  EXPECT_EQ(narrow, ToNarrow(wide));
  EXPECT_EQ(0u, wide.find(L"HID\\VID_2E7C&PID_0818"));
  EXPECT_FALSE(GetDeviceIdW(node, narrow.size(), wide));
  EXPECT_FALSE(GetDeviceIdA(node, narrow.size(), narrow));
  EXPECT_TRUE(GetTextProperty(node, HardwareIds, 4096, ids));
  const std::size_t bytes = ids.size() * 2;
  EXPECT_TRUE(GetTextProperty(node, HardwareIds, bytes, ids));
  EXPECT_FALSE(GetTextProperty(node, HardwareIds, bytes - 2, ids));
  EXPECT_EQ(std::wstring(2, L'\0'), ids.substr(ids.size() - 2)) << "last string, then the list";
}

TEST_F(SeamTest, AnOpenDeviceReportsItsLengthsAndItsStringAndExchangesReports) {
  const HidDevice device = Open(NodeOf(second));
  Event event;
  PreparsedData preparsed;
  HidCaps caps;
  EXPECT_TRUE(CreateReportEvent(event));
  EXPECT_TRUE(event);
  EXPECT_TRUE(GetPreparsedData(device, preparsed));
  EXPECT_TRUE(GetCaps(preparsed, caps));
  EXPECT_EQ(200, caps.outputReportLength);
  EXPECT_EQ(300, caps.inputReportLength);

  std::wstring text;
  EXPECT_TRUE(GetIndexedString(device, 52, 26, text));
  EXPECT_EQ(L"WQ HID Gr\u00F6\u00DFe", text);
  EXPECT_FALSE(GetIndexedString(device, 52, 24, text));
  EXPECT_FALSE(GetIndexedString(device, 199, 512, text)) << "no such string";

  Bytes status{0, 0xC0, 0x09, 0, 0, 0, 0, 20}, answer(303, 0xEE);
  status.resize(200);
  answer[0] = 0;
  EXPECT_FALSE(SetOutputReport(device, status.data(), 200)) << "refused until it is enabled";
  EXPECT_TRUE(Enable(device, 200));
  EXPECT_TRUE(SetOutputReport(device, status.data(), 200));
  EXPECT_TRUE(GetInputReport(device, answer.data(), 300));
  EXPECT_EQ((Bytes{0, 0x1A, 0x2B}), Bytes(answer.begin(), answer.begin() + 3));
  EXPECT_EQ(Bytes(3, 0xEE), Bytes(answer.begin() + 300, answer.end())) << "after the report";
  EXPECT_FALSE(Enable(device, 9)) << "another length than the declared one";
  EXPECT_FALSE(Enable(nullptr));
  EXPECT_FALSE(GetIndexedString(nullptr, 52, 512, text));
  EXPECT_FALSE(GetPreparsedData(nullptr, preparsed));
}

TEST_F(SeamTest, AHandleEndsWithTheStayOfItsDeviceWhateverNumberThatHasWhenItReturns) {
  const DevInst before = NodeOf(first), usb = ParentOf(before);
  const std::string place = TextOf(usb, LocationPaths);
  const std::wstring path = PathOf(before);
  const HidDevice device = Open(before);
  EXPECT_TRUE(Enable(device));

  bench.unplug();
  HidDevice again;
  std::wstring text;
  EXPECT_EQ(0u, NodeOf(first));
  EXPECT_FALSE(OpenHidDevice(path, again));
  EXPECT_FALSE(Enable(device));
  EXPECT_FALSE(GetDeviceIdW(before, 200, text));
  EXPECT_EQ(0u, ParentOf(before));
  EXPECT_THAT(TextOf(usb, LocationPaths), StartsWith("error"));

  bench.plug();
  const DevInst after = NodeOf(first), usbAfter = ParentOf(after);
  const HidDevice reopened = Open(after);
  EXPECT_EQ(bench.keepsNumbers, after == before);
  EXPECT_EQ(bench.keepsNumbers, usbAfter == usb);
  EXPECT_EQ(place, TextOf(usbAfter, LocationPaths));
  EXPECT_FALSE(Enable(device)) << "the old handle stays dead";
  EXPECT_TRUE(Enable(reopened));

  bench.unplug();
  bench.plug();  // and nobody has looked in between
  EXPECT_EQ(bench.keepsNumbers, GetDeviceIdW(after, 200, text).ok);
  EXPECT_EQ(bench.keepsNumbers, GetDeviceIdW(usbAfter, 200, text).ok);
  EXPECT_FALSE(Enable(reopened));
}

TEST_F(SeamTest, TheSystemReportsTheTimeDescribesTheHostAndReadsRegularFilesOnly) {
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

  const std::string folder = ::testing::TempDir(), contents("\r\n\x1A\0\n", 5), file = folder + "s";
  std::ofstream(file, std::ios::binary) << contents;
  Bytes bytes;
  EXPECT_TRUE(ReadRegularFile(file.c_str(), bytes));
  EXPECT_EQ(contents, std::string(bytes.begin(), bytes.end()));
  for (const std::string& path : {folder, folder + "none", std::string("NUL"), std::string()}) {
    EXPECT_FALSE(ReadRegularFile(path.c_str(), bytes)) << path;
    EXPECT_EQ(contents.size(), bytes.size()) << path;
  }
}

}  // namespace

}  // namespace qzhid::platform::test
