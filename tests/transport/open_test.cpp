// Opening a device: each step that fails, what stays open, and which devices are accepted; and the
// line that describes the host before.
#include "support/private_library.h"
#include "transport/transport_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using virtualhub::Fault;
using virtualhub::Service;
using virtualhub::HandleKind;

constexpr const char* kTag = "CHidTransfers::Yv_OpenDeviceByDevInst";

class OpenTest : public LibraryTest {
 protected:
  /// A machine whose device "hub" has the device id of another maker.
  void InstallForeign(const std::string& deviceId, const std::optional<std::string>& productText,
                      std::uint16_t inputLength = 257) {
    virtualhub::Scenario scenario = RecordedScenario();
    scenario.devices[0].hid.deviceId = deviceId;
    scenario.devices[0].productText = productText;
    scenario.devices[0].hub->reports.inputLength = inputLength;
    Install(scenario);
    log.Clear();
  }

  /// How many open devices, report events, node sets and parsed descriptors there are.
  std::string Open() const {
    std::string counts;
    for (const auto kind : {HandleKind::HidDevice, HandleKind::Event, HandleKind::NodeSet,
                            HandleKind::PreparsedData}) {
      counts += std::to_string(machine->openHandles(kind));
    }
    return counts;
  }
};

TEST_F(OpenTest, EachFailingStepHasItsMessageAndCode) {
  const struct {
    Service service;
    const char* message;  // of code 26
    const char* open;
  } rows[] = {
      {Service::FirstInterface, "SetupDiEnumDeviceInterfaces FAIL,ErrorCode is 0000001a\n", "0000"},
      {Service::InterfacePath, "SetupDiGetDeviceInterfaceDetail FAIL,ErrorCode is 0000001a\n",
       "0000"},
      {Service::OpenHidDevice, "CreateFile failed,ErrorCode is 0000001a\n", "0000"},
      {Service::CreateReportEvent, "Create Event failed.Error Code is 26\n", "0000"},
      {Service::GetPreparsedData, "HidD_GetPreparsedData failed,ErrorCode:26\n", "1100"},
      {Service::GetCaps, "HidP_GetCaps failed,Error Code is 26\n", "1100"},
      {Service::GetLibraryPath, "Get Dll Path Fail\n", "1100"},
      {Service::GetDeviceIdA, "CM_Get_Device_IDA Fail\n", "1100"},
      {Service::GetIndexedString, "HidD_GetIndexedString failed,Error Code:26\n", "1100"},
  };
  for (const auto& row : rows) {
    for (const std::uint32_t code : {0u, 26u}) {  // a failure without a code is one, too
      SCOPED_TRACE(NameOf(row.service));
      InstallForeign("HID\\VID_045E&PID_0750", "WQ HID");
      const std::uint32_t hub = machine->HidInstance("hub");
      machine->AddFault({.on = Fault::On::Call, .service = row.service, .code = code});
      CHidProperty property(std::make_unique<CHidTransfers>());
      EXPECT_EQ(code == 0 ? kRefused : code, property.Yv_OpenDeviceByDevInst(hub));
      EXPECT_EQ(row.open, Open());
      EXPECT_EQ(0u, property.Yv_CloseDevice());
      EXPECT_EQ("0000", Open());
      EXPECT_EQ(0u, property.Yv_OpenDeviceByDevInst(hub));
      EXPECT_EQ("1100", Open());
    }
    EXPECT_EQ("0000", Open());  // destruction closes
    EXPECT_THAT(log.From(3), ElementsAre(LogLine{3, kTag, row.message},
                                         LogLine{3, "CHidProperty::Yv_OpenDeviceByDevInst",
                                                 "Open Fail,ErrorCode:26\n"}));
  }
}

TEST_F(OpenTest, NodesThatAreNotFoundAreRefusedWithoutAMessage) {
  const std::uint32_t hub = machine->HidInstance("hub"), usb = machine->UsbInstance("hub");
  const std::pair<std::optional<Service>, std::uint32_t> rows[] = {
      {{}, 0}, {{}, 0xFFFFFFFF}, {{}, usb}, {Service::EnumNode, hub}, {Service::OpenNodeSet, hub}};
  for (const auto& [failing, devInst] : rows) {
    if (failing) machine->AddFault({.on = Fault::On::Call, .service = failing, .code = 5});
    EXPECT_EQ(kRefused, CHidTransfers().Yv_OpenDeviceByDevInst(devInst));
    EXPECT_THAT(log.lines, IsEmpty());
    EXPECT_EQ("0000", Open());
  }
}

TEST_F(OpenTest, VendorIdElseProductTextDecides) {
  const struct {
    std::string deviceId;
    std::optional<std::string> productText;
    std::string ids;  // as logged
    std::uint32_t result;
    std::uint16_t inputLength = 257;
  } rows[] = {
      {"HID\\VID_2E7C&PID_0818\\7&1", {}, "0x2e7c/0x0818", 0},
      {"hid\\vid_2e7c&pid_08aB\\7&1", {}, "0x2e7c/0x08ab", 0},
      {"HID\\VID_2E7&PID_12&X", "WQ HID Hub", "0x02e7/0x0012", 0},
      {"HID\\VID_045E&PID_2E7C", "WQ HID Hub", "0x045e/0x2e7c", 0},
      {"HID\\VID_045E&PID_0818", "my WQ HID", "0x045e/0x0818", 0},
      {"HID\\VID_045E&PID_0818", "wq hid hub", "0x045e/0x0818", kRefused},
      {"HID\\VID_045E&PID_0818", {}, "0x045e/0x0818", kStalled},
      // The text must fit the input report, with its terminator.
      {"HID\\VID_045E", "WQ HID", "0x045e/0x0000", 0, 14},
      {"HID\\VID_045E", "WQ HID", "0x045e/0x0000", ENOBUFS, 13},
      {"SWD\\2E7C", "WQ HID", "0x0000/0x0000", 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.deviceId + " " + row.productText.value_or("(none)"));
    InstallForeign(row.deviceId, row.productText, row.inputLength);
    CHidTransfers transfers;
    const std::uint32_t devInst = machine->HidInstance("hub");
    EXPECT_EQ(row.result, transfers.Yv_OpenDeviceByDevInst(devInst));
    const std::string node = "DevInst:" + std::to_string(devInst) + ",VID/PID:";
    EXPECT_EQ((LogLine{0, kTag, node + row.ids + "\n"}), log.lines.at(0));
    EXPECT_EQ("1100", Open());  // also when refused
    const auto asked = machine->recorder().Calls(Service::GetIndexedString);
    EXPECT_TRUE(asked.empty() || asked[0].value == 52);
  }
}

TEST_F(OpenTest, IdListBesideTheLibraryReplacesTheProductTextButNotTheVendorId) {
  const PrivateLibrary library(R"({"time": "virtual", "devices": [
    {"name": "family", "port": "1", "product_text": null},
    {"name": "silent", "port": "2", "kind": "other", "vid": "0x045E", "pid": "0x0750"},
    {"name": "named", "port": "3", "kind": "other", "vid": "0x1234", "pid": "0x5678",
     "product_text": "WQ HID"}]})");
  const std::string family = "2E7C:0818\n", silent = "045E:0750\n", named = "1234:5678\n";
  EXPECT_EQ(family + named, library.List(3));
  const std::pair<const char*, std::string> rows[] = {
      {"VID:1111 PID:2222\nPID:075034,VID:045e12", family + silent},
      {"; VID:45e12\r\n#\nVID: 45EF;PID:\t750 junk\r\n", family + silent},
      {"VID:045E PID:5678\nVID:1234 PID:0750\n", family},
      {"VID:045E\nPID:0750\nVID:0 PID:0750\nVID:045E PID:\n", family + named},  // as good as none
      {"vid:045E pid:0750\nVID=045E PID=0750\nVID:wxyz PID:0750\n", family + named}};
  for (const auto& [text, listed] : rows) {
    WriteText(library.folder() / "VidPid.ini", text);
    EXPECT_EQ(listed, library.List(3)) << text;
  }
}

TEST_F(OpenTest, OneDeviceIsOpenAtATimeAndIdentificationLeavesNoneOpen) {
  CHidProperty property(std::make_unique<CHidTransfers>());
  const std::uint32_t hub = machine->HidInstance("hub");
  EXPECT_EQ(0u, property.Yv_OpenDeviceByDevInst(hub));
  EXPECT_EQ(0u, property.Yv_OpenDeviceByDevInst(hub));
  EXPECT_EQ("1100", Open());
  EXPECT_EQ(1u, property.Yv_IsWqHid(hub));
  EXPECT_EQ("0000", Open());
  EXPECT_EQ(0u, property.Yv_OpenDeviceByDevInst(hub));
  EXPECT_EQ(0u, property.Yv_IsWqHid(0));  // has closed the hub before
  EXPECT_EQ("0000", Open());
}

TEST_F(OpenTest, HostIsDescribedInOneLineWithWhatCanBeRead) {
  const std::pair<std::string, const char*> rows[] = {
      {R"("product_name": "W", "major": 10, "update_revision": 28, "architecture": "x64")",
       ", OS Type:W OS Version:10.0.22631.28 Platform:x64\n"},
      {R"("product_name": null, "major": 6, "architecture": "arm64")",
       ", OS Type: OS Version:6.0.22631 Platform:ARM64\n"},
      {R"("version_store": false, "architecture": "unknown")",
       "RegOpenKeyEx failed.\n[2024-03-07, 09:05:02]  CRequestCMD::CRequestCMD, Unknown"}};
  for (const auto& [host, line] : rows) {
    const PrivateLibrary library(R"({"time": "virtual", "devices": [], "host": {)" + host + "}}");
    library.List(0);
    EXPECT_THAT(ReadText(library.folder() / "info.txt"), HasSubstr(line));
  }
}

}  // namespace
}  // namespace qzhid::test
