// Opening a device: each step that fails, what stays open, and which devices are accepted.
#include "support/private_library.h"
#include "transport/transport_test.h"
#include "transport/vid_pid_list.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using virtualhub::Fault;
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

  /// Open devices and report events; nothing else may stay open in between.
  std::vector<int> OpenHandles() const {
    EXPECT_EQ(0, world->openHandles(HandleKind::NodeSet));
    EXPECT_EQ(0, world->openHandles(HandleKind::PreparsedData));
    return {world->openHandles(HandleKind::HidDevice), world->openHandles(HandleKind::Event)};
  }
};

TEST_F(OpenTest, EachFailingStepHasItsMessageAndCode) {
  const struct {
    const char* service;
    std::string message;  // of code 26
    int leftOpen;
  } rows[] = {
      {"FirstInterface", "SetupDiEnumDeviceInterfaces FAIL,ErrorCode is 0000001a\n", 0},
      {"InterfacePath", "SetupDiGetDeviceInterfaceDetail FAIL,ErrorCode is 0000001a\n", 0},
      {"OpenHidDevice", "CreateFile failed,ErrorCode is 0000001a\n", 0},
      {"CreateReportEvent", "Create Event failed.Error Code is 26\n", 0},
      {"GetPreparsedData", "HidD_GetPreparsedData failed,ErrorCode:26\n", 1},
      {"GetCaps", "HidP_GetCaps failed,Error Code is 26\n", 1},
      {"GetDeviceIdA", "CM_Get_Device_IDA Fail\n", 1},
      {"GetIndexedString", "HidD_GetIndexedString failed,Error Code:26\n", 1},
  };
  for (const auto& row : rows) {
    for (const std::uint32_t code : {26u, 0u}) {
      SCOPED_TRACE(row.service);
      InstallForeign("HID\\VID_045E&PID_0750", "WQ HID");
      world->AddFault({.on = Fault::On::Call, .service = row.service, .code = code});
      CHidProperty property(std::make_unique<CHidTransfers>());
      EXPECT_EQ(code == 0 ? kRefused : code,
                property.Yv_OpenDeviceByDevInst(world->HidInstance("hub")));
      const auto lines = log.From(3);
      ASSERT_EQ(2u, lines.size());
      EXPECT_EQ(code == 0 ? lines[0] : (LogLine{3, kTag, row.message}), lines[0]);
      EXPECT_EQ((LogLine{3, "CHidProperty::Yv_OpenDeviceByDevInst",
                         code == 0 ? "Open Fail,ErrorCode:-1\n" : "Open Fail,ErrorCode:26\n"}),
                lines[1]);
      EXPECT_THAT(OpenHandles(), ElementsAre(row.leftOpen, row.leftOpen));
      for (int i = 0; i < 2; ++i) {  // closing twice is harmless
        EXPECT_EQ(0u, property.Yv_CloseDevice());
        EXPECT_THAT(OpenHandles(), ElementsAre(0, 0));
      }
      EXPECT_EQ(0u, property.Yv_OpenDeviceByDevInst(world->HidInstance("hub")));
      EXPECT_THAT(OpenHandles(), ElementsAre(1, 1));
    }
    EXPECT_THAT(OpenHandles(), ElementsAre(0, 0));  // destruction closes
  }
}

TEST_F(OpenTest, NodesThatAreNotFoundAreRefusedWithoutAMessage) {
  const struct {
    const char* failing;
    std::uint32_t devInst;
  } rows[] = {{"", 0},
              {"", 0xFFFFFFFF},
              {"", world->UsbInstance("hub")},
              {"OpenNodeSet", world->HidInstance("hub")},
              {"EnumNode", world->HidInstance("hub")}};
  CHidTransfers transfers;
  for (const auto& row : rows) {
    ClearRecords();
    world->AddFault({.on = Fault::On::Call, .service = row.failing, .code = 5});
    EXPECT_EQ(kRefused, transfers.Yv_OpenDeviceByDevInst(row.devInst));
    EXPECT_THAT(log.lines, IsEmpty());
    EXPECT_THAT(OpenHandles(), ElementsAre(0, 0));
    if (row.devInst == 0) {
      EXPECT_THAT(world->recorder().all(), IsEmpty());
    }
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
      {"HID\\PID_0818&VID_2E7C", "", "0x2e7c/0x0818", 0},
      {"HID\\VID_2E7C", {}, "0x2e7c/0x0000", 0},
      {"HID\\VID_2E7C99&PID_081899", {}, "0x2e7c/0x0818", 0},
      {"HID\\VID_2E7&PID_12&X", "WQ HID Hub", "0x02e7/0x0012", 0},
      {"HID\\VID_045E&PID_2E7C", "WQ HID Hub", "0x045e/0x2e7c", 0},
      {"HID\\VID_045E&PID_0818", "my WQ HID", "0x045e/0x0818", 0},
      {"HID\\VID_045E&PID_0818", "WQ HI", "0x045e/0x0818", kRefused},
      {"HID\\VID_045E&PID_0818", "wq hid hub", "0x045e/0x0818", kRefused},
      {"HID\\VID_045E&PID_0818", "", "0x045e/0x0818", kRefused},
      {"HID\\VID_045E&PID_0818", {}, "0x045e/0x0818", kStalled},
      // The text must fit the input report, with its terminator.
      {"HID\\VID_045E", "WQ HID", "0x045e/0x0000", 0, 14},
      {"HID\\VID_045E", "WQ HID", "0x045e/0x0000", ENOBUFS, 13},
      {"SWD\\2E7C", "WQ HID", "0x0000/0x0000", 0},
      {"SWD\\2E7C", "keyboard", "0x0000/0x0000", kRefused},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.deviceId + " " + row.productText.value_or("(none)"));
    InstallForeign(row.deviceId, row.productText, row.inputLength);
    CHidTransfers transfers;
    const std::uint32_t devInst = world->HidInstance("hub");
    EXPECT_EQ(row.result, transfers.Yv_OpenDeviceByDevInst(devInst));
    EXPECT_EQ(
        (LogLine{0, kTag, "DevInst:" + std::to_string(devInst) + ",VID/PID:" + row.ids + "\n"}),
        log.lines.at(0));
    EXPECT_EQ(row.result == 0 || row.result == kRefused ? 1u : 2u, log.lines.size());
    EXPECT_THAT(OpenHandles(), ElementsAre(1, 1));  // also when refused
    const auto asked = world->recorder().Calls("GetIndexedString");
    ASSERT_EQ(row.ids.substr(0, 6) == "0x2e7c" ? 0u : 1u, asked.size());
    if (!asked.empty()) {
      EXPECT_EQ(52u, asked[0].value);
    }
  }
}

TEST_F(OpenTest, IdListTakesLinesWithBothNumbers) {
  const struct {
    std::string text;
    VidPidList pairs;
  } rows[] = {
      {"", {}},
      {"VID:045E PID:0750\n", {{0x045E, 0x0750}}},
      {"PID:0750,VID:045E", {{0x045E, 0x0750}}},
      {"; VID:45e;PID:7 junk\r\n\n#\nVID:1PID:2\n", {{0x45E, 7}, {1, 2}}},
      {"VID:045E12 PID:075034\n", {{0x045E, 0x0750}}},
      {"VID: 45EF PID:\t750\n", {{0x45E, 0x750}}},
      {"VID:045E\nPID:0750\n", {}},
      {"VID:0000 PID:0750\nVID:045E PID:0000\nVID:045E PID:\nVID:PID:0750\n", {}},
      {"vid:045E pid:0750\nVID=045E PID=0750\nVID:wxyz PID:0750\n", {}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    const TempFile file(Bytes(row.text.begin(), row.text.end()), "VidPid.ini");
    VidPidList pairs{{9, 9}};
    EXPECT_TRUE(ReadVidPidList(file.path(), pairs));
    EXPECT_EQ(row.pairs, pairs);
    EXPECT_EQ(row.pairs.empty() ? 0u : 1u, CHidTransfers().GetVidPidList(file.path()));
  }
  EXPECT_EQ(0u, CHidTransfers().GetVidPidList(UniquePath("missing.ini")));
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(OpenTest, IdListBesideTheLibraryReplacesTheProductTextButNotTheVendorId) {
  const PrivateLibrary library(R"({"time": "virtual", "devices": [
    {"name": "family", "port": "1", "product_text": null},
    {"name": "silent", "port": "2", "kind": "other", "vid": "0x045E", "pid": "0x0750"},
    {"name": "named", "port": "3", "kind": "other", "vid": "0x1234", "pid": "0x5678",
     "product_text": "WQ HID"}]})");
  const auto list = [&](const std::string& text) {
    WriteText(library.folder() / "VidPid.ini", text);
    return library.List(3);
  };
  const std::string byText = "2E7C:0818\n1234:5678\n";
  EXPECT_EQ(byText, library.List(3));
  EXPECT_EQ("2E7C:0818\n045E:0750\n", list("VID:1111 PID:2222\nPID:0750 VID:045E\n"));
  EXPECT_EQ("2E7C:0818\n", list("VID:0750 PID:045E\n"));
  EXPECT_EQ("2E7C:0818\n", list("VID:045E PID:5678\nVID:1234 PID:0750\n"));
  EXPECT_EQ(byText, list(""));
  EXPECT_EQ(byText, list("VID:045E\n"));
}

}  // namespace
}  // namespace qzhid::test
