// Opening a device: which devices are accepted, what each failing step says and what stays open.
#include "support/layer_test.h"
#include "support/private_library.h"
#include "transport/vid_pid_list.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Lines = std::vector<LogLine>;

constexpr const char* kTag = "CHidTransfers::Yv_OpenDeviceByDevInst";

using OpenTest = LayerTest;

TEST_F(OpenTest, EachFailingStepHasItsMessageAndCodeAndClosingOrDestructionCleansUp) {
  const std::tuple<Service, std::string, std::vector<int>> rows[] = {
      // what fails, its message with code 26, what stays open
      {Service::FirstInterface, "SetupDiEnumDeviceInterfaces FAIL,ErrorCode is 0000001a\n",
       kNoHandles},
      {Service::InterfacePath, "SetupDiGetDeviceInterfaceDetail FAIL,ErrorCode is 0000001a\n",
       kNoHandles},
      {Service::OpenHidDevice, "CreateFile failed,ErrorCode is 0000001a\n", kNoHandles},
      {Service::CreateReportEvent, "Create Event failed.Error Code is 26\n", kNoHandles},
      {Service::GetPreparsedData, "HidD_GetPreparsedData failed,ErrorCode:26\n", kOneDevice},
      {Service::GetCaps, "HidP_GetCaps failed,Error Code is 26\n", kOneDevice},
      {Service::GetLibraryPath, "Get Dll Path Fail\n", kOneDevice},
      {Service::GetDeviceIdA, "CM_Get_Device_IDA Fail\n", kOneDevice},
      {Service::GetIndexedString, "HidD_GetIndexedString failed,Error Code:26\n", kOneDevice}};
  InstallJson(
      R"({"devices": [{"name": "hub", "port": "1", "hid": {"device_id": "HID\\VID_045E&PID_0750"}}]})");
  const std::uint32_t hub = machine->HidInstance("hub");
  for (const auto& [service, message, open] : rows) {
    for (const std::uint32_t code : {0u, 26u}) {  // a failure without a code is one, too
      SCOPED_TRACE(NameOf(service));
      ClearRecords();
      machine->AddFault(CallFault(service, 1, 1, code));
      EXPECT_EQ(code == 0 ? kRefused : code, property->Yv_OpenDeviceByDevInst(hub));
      EXPECT_EQ(open, Handles());
      EXPECT_EQ(0u, property->Yv_CloseDevice());
      EXPECT_EQ(kNoHandles, Handles());
      if (code == 0) continue;
      EXPECT_EQ((Lines{{3, kTag, message},
                       {3, "CHidProperty::Yv_OpenDeviceByDevInst", "Open Fail,ErrorCode:26\n"}}),
                Failures());
    }
  }
  EXPECT_EQ(0u, property->Yv_OpenDeviceByDevInst(hub)) << "the next attempt";
  EXPECT_EQ(0u, property->Yv_OpenDeviceByDevInst(hub));
  EXPECT_EQ(kOneDevice, Handles()) << "one at a time";
  requests.SetProperty(nullptr);
  property.reset();
  EXPECT_EQ(kNoHandles, Handles());
}

TEST_F(OpenTest, NodesThatAreNotFoundAreRefusedWithoutAMessage) {
  const std::uint32_t hub = machine->HidInstance("hub"), usb = machine->UsbInstance("hub");
  const std::pair<std::optional<Service>, std::uint32_t> rows[] = {
      {{}, 0}, {{}, 0xFFFFFFFF}, {{}, usb}, {Service::EnumNode, hub}, {Service::OpenNodeSet, hub}};
  for (const auto& [failing, devInst] : rows) {
    if (failing) machine->AddFault(CallFault(*failing));
    EXPECT_EQ(kRefused, transfers->Yv_OpenDeviceByDevInst(devInst));
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(kNoHandles, Handles());
  }
}

TEST_F(OpenTest, TheVendorIdDecidesAndOtherwiseTheProductText) {
  using Text = std::optional<std::string>;
  const std::tuple<std::string, Text, std::string, std::uint32_t, std::uint16_t> rows[] = {
      // device id, product text, ids as logged, result, length of the input report
      {"HID\\VID_2E7C&PID_0818\\7&1", {}, "0x2e7c/0x0818", 0, 257},
      {"hid\\vid_2e7c&pid_08aB\\7&1", {}, "0x2e7c/0x08ab", 0, 257},
      {"HID\\VID_2E7&PID_12&X", "WQ HID Hub", "0x02e7/0x0012", 0, 257},
      {"HID\\VID_045E&PID_2E7C", "my WQ HID", "0x045e/0x2e7c", 0, 257},
      {"HID\\VID_045E&PID_0818", "wq hid hub", "0x045e/0x0818", kRefused, 257},
      {"HID\\VID_045E&PID_0818", {}, "0x045e/0x0818", kStalled, 257},
      // The text must fit the input report, with its terminator.
      {"HID\\VID_045E", "WQ HID", "0x045e/0x0000", 0, 14},
      {"HID\\VID_045E", "WQ HID", "0x045e/0x0000", ENOBUFS, 13},
      {"SWD\\2E7C", "WQ HID", "0x0000/0x0000", 0, 257}};
  for (const auto& [deviceId, productText, ids, result, inputLength] : rows) {
    SCOPED_TRACE(deviceId + " " + productText.value_or("(none)"));
    virtualhub::Scenario scenario = RecordedScenario();
    scenario.devices[0].hid.deviceId = deviceId;
    scenario.devices[0].productText = productText;
    scenario.devices[0].hub->reports.inputLength = inputLength;
    Install(scenario);
    const std::uint32_t hub = machine->HidInstance("hub");
    EXPECT_EQ(result, transfers->Yv_OpenDeviceByDevInst(hub));
    const std::string text = "DevInst:" + std::to_string(hub) + ",VID/PID:" + ids + "\n";
    EXPECT_EQ((LogLine{0, kTag, text}), log.Lines().at(0));
    EXPECT_EQ(kOneDevice, Handles()) << "refused devices are closed by the caller";
    std::vector<std::uint32_t> asked;  // the number of the text
    for (const auto& call : machine->recorder().Calls(Service::GetIndexedString))
      asked.push_back(call.value);
    EXPECT_EQ(std::vector<std::uint32_t>(ids.starts_with("0x2e7c") ? 0 : 1, 52), asked);
    transfers->Yv_CloseDevice();
  }
}

TEST_F(OpenTest, AnIdListBesideTheLibraryReplacesTheProductTextButNotTheVendorId) {
  const PrivateLibrary library(R"({"time": "virtual", "devices": [
    {"name": "family", "port": "1", "product_text": null},
    {"name": "silent", "port": "2", "kind": "other", "vid": "0x045E", "pid": "0x0750"},
    {"name": "named", "port": "3", "kind": "other", "vid": "0x1234", "pid": "0x5678",
     "product_text": "WQ HID"}]})");
  const std::string family = "2E7C:0818", silent = "045E:0750", named = "1234:5678";
  EXPECT_THAT(library.List(3), ElementsAre(family, named)) << "without a list";
  const std::pair<const char*, std::vector<std::string>> rows[] = {
      {"VID:1111 PID:2222\nPID:075034,VID:045e12", {family, silent}},
      {"; VID:45e12\r\n#\nVID: 45EF;PID:\t750 junk\r\n", {family, silent}},
      {"VID:045E PID:5678\nVID:1234 PID:0750\n", {family}},
      // A list without a pair is as good as none.
      {"VID:045E\nPID:0750\nVID:0 PID:0750\nVID:045E PID:\n", {family, named}},
      {"vid:045E pid:0750\nVID=045E PID=0750\nVID:wxyz PID:0750\n", {family, named}}};
  for (const auto& [text, listed] : rows) {
    WriteText(library.folder.At("VidPid.ini"), text);
    EXPECT_EQ(listed, library.List(3)) << text;
  }
}

TEST_F(OpenTest, AskingForTheFamilyLeavesNothingOpen) {
  const std::uint32_t hub = machine->HidInstance("hub");
  const std::string tag = "CHidProperty::Yv_IsWqHid";
  for (const std::uint32_t asked : {hub, 0u}) {
    OpenHub();
    EXPECT_EQ(asked == hub ? 1u : 0u, property->Yv_IsWqHid(asked));
    EXPECT_EQ(kNoHandles, Handles()) << "the open device was closed before";
    const std::string text =
        "DevInst: " + std::to_string(asked) + (asked == hub ? ", WQ" : ", Not WQ");
    EXPECT_EQ(LinesOf(tag, {{asked == hub ? 0 : 3, text + " Hid Device\n"}}), Logged(tag));
  }
}

TEST_F(OpenTest, AnIdListReplacesTheOneBefore) {
  VidPidList list = {{1, 2}};
  const ScratchFolder folder;
  WriteText(folder.At("ids"), "VID:3 PID:4");
  EXPECT_TRUE(ReadVidPidList(folder.At("ids"), list));
  EXPECT_EQ((VidPidList{{3, 4}}), list);
  EXPECT_FALSE(ReadVidPidList(folder.At("missing"), list));
  EXPECT_THAT(list, IsEmpty());
}

TEST_F(OpenTest, TheHostIsDescribedInOneLineWithWhatCanBeReadAndTheRestIsAFailure) {
  const std::string stamp = "[2024-03-07, 09:05:02]  CRequestCMD::CRequestCMD, ";
  const std::tuple<std::string, std::string, std::string> rows[] = {
      {R"("product_name": "W", "major": 10, "update_revision": 28, "architecture": "x64")", "",
       "OS Type:W OS Version:10.0.22631.28 Platform:x64\n"},
      {R"("product_name": null, "major": 9, "architecture": "arm64")",
       "Query Product Name Failed\n", "OS Type: OS Version:9.0.22631 Platform:ARM64\n"},
      {R"("product_name": "W", "update_revision": null, "architecture": "x86")",
       "Query UBR failed.\n", "OS Type:W OS Version:10.0.22631 Platform:x86\n"},
      {R"("version_store": false, "architecture": "unknown")", "RegOpenKeyEx failed.\n",
       "Unknown Platform\n"}};
  for (const auto& [host, failure, description] : rows) {
    const PrivateLibrary library(R"({"time": "virtual", "devices": [], "host": {)" + host + "}}");
    const std::string failed = failure.empty() ? "" : stamp + failure;
    library.List(0);
    EXPECT_THAT(ReadText(library.folder.At("info.txt")), HasSubstr(failed + stamp + description));
    library.List(3);
    EXPECT_THAT(ReadText(library.folder.At("info.txt")), HasSubstr(failed + "["));
  }
}

}  // namespace
}  // namespace qzhid::test
