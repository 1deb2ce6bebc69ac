// Opening a device: which devices are accepted, what each failing step says and what stays open.
#include "support/layer_test.h"
#include "support/private_library.h"
#include "transport/vid_pid_list.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* kTag = "CHidTransfers::Yv_OpenDeviceByDevInst";

class OpenTest : public LayerTest {
 protected:
  /// A machine whose device "hub" has that device id. Returns its number.
  std::uint32_t InstallWithId(const std::string& deviceId,
                              const std::optional<std::string>& productText = "WQ HID",
                              std::uint16_t inputLength = 257) {
    virtualhub::Scenario scenario = RecordedScenario();
    scenario.devices[0].hid.deviceId = deviceId;
    scenario.devices[0].productText = productText;
    scenario.devices[0].hub->reports.inputLength = inputLength;
    Install(scenario);
    return machine->HidInstance("hub");
  }
};

TEST_F(OpenTest, EachFailingStepHasItsMessageAndCodeAndClosingCleansUpAfterIt) {
  const struct {
    Service service;
    const char* message;  // with code 26
    std::vector<int> open = kNoHandles;
  } rows[] = {
      {Service::FirstInterface, "SetupDiEnumDeviceInterfaces FAIL,ErrorCode is 0000001a\n"},
      {Service::InterfacePath, "SetupDiGetDeviceInterfaceDetail FAIL,ErrorCode is 0000001a\n"},
      {Service::OpenHidDevice, "CreateFile failed,ErrorCode is 0000001a\n"},
      {Service::CreateReportEvent, "Create Event failed.Error Code is 26\n"},
      {Service::GetPreparsedData, "HidD_GetPreparsedData failed,ErrorCode:26\n", kOneDevice},
      {Service::GetCaps, "HidP_GetCaps failed,Error Code is 26\n", kOneDevice},
      {Service::GetLibraryPath, "Get Dll Path Fail\n", kOneDevice},
      {Service::GetDeviceIdA, "CM_Get_Device_IDA Fail\n", kOneDevice},
      {Service::GetIndexedString, "HidD_GetIndexedString failed,Error Code:26\n", kOneDevice},
  };
  for (const auto& row : rows) {
    for (const std::uint32_t code : {0u, 26u}) {  // a failure without a code is one, too
      SCOPED_TRACE(NameOf(row.service));
      const std::uint32_t hub = InstallWithId("HID\\VID_045E&PID_0750");
      machine->AddFault(CallFault(row.service, 1, 1, code));
      EXPECT_EQ(code == 0 ? kRefused : code, property->Yv_OpenDeviceByDevInst(hub));
      EXPECT_EQ(row.open, Handles());
      EXPECT_EQ(0u, property->Yv_CloseDevice());
      EXPECT_EQ(kNoHandles, Handles());
      if (code == 26) {
        EXPECT_THAT(Failures(), ElementsAre(LogLine{3, kTag, row.message},
                                            LogLine{3, "CHidProperty::Yv_OpenDeviceByDevInst",
                                                    "Open Fail,ErrorCode:26\n"}));
      }
      EXPECT_EQ(0u, property->Yv_OpenDeviceByDevInst(hub)) << "the next attempt";
      EXPECT_EQ(kOneDevice, Handles());
      property->Yv_CloseDevice();
    }
  }
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

TEST_F(OpenTest, TheVendorIdDecidesAndElseTheProductText) {
  const struct {
    std::string deviceId;
    std::optional<std::string> productText;
    std::string ids;  // as logged
    std::uint32_t result = 0;
    std::uint16_t inputLength = 257;
  } rows[] = {
      {"HID\\VID_2E7C&PID_0818\\7&1", {}, "0x2e7c/0x0818"},
      {"hid\\vid_2e7c&pid_08aB\\7&1", {}, "0x2e7c/0x08ab"},
      {"HID\\VID_2E7&PID_12&X", "WQ HID Hub", "0x02e7/0x0012"},
      {"HID\\VID_045E&PID_2E7C", "WQ HID Hub", "0x045e/0x2e7c"},
      {"HID\\VID_045E&PID_0818", "my WQ HID", "0x045e/0x0818"},
      {"HID\\VID_045E&PID_0818", "wq hid hub", "0x045e/0x0818", kRefused},
      {"HID\\VID_045E&PID_0818", {}, "0x045e/0x0818", kStalled},
      // The text must fit the input report, with its terminator.
      {"HID\\VID_045E", "WQ HID", "0x045e/0x0000", 0, 14},
      {"HID\\VID_045E", "WQ HID", "0x045e/0x0000", ENOBUFS, 13},
      {"SWD\\2E7C", "WQ HID", "0x0000/0x0000"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.deviceId + " " + row.productText.value_or("(none)"));
    const std::uint32_t hub = InstallWithId(row.deviceId, row.productText, row.inputLength);
    EXPECT_EQ(row.result, transfers->Yv_OpenDeviceByDevInst(hub));
    const std::string text = "DevInst:" + std::to_string(hub) + ",VID/PID:" + row.ids + "\n";
    EXPECT_EQ((LogLine{0, kTag, text}), log.Lines().at(0));
    EXPECT_EQ(kOneDevice, Handles()) << "refused devices are closed by the caller";
    const auto asked = machine->recorder().Calls(Service::GetIndexedString);
    EXPECT_EQ(row.ids.starts_with("0x2e7c") ? 0u : 1u, asked.size());
    for (const auto& call : asked) EXPECT_EQ(52u, call.value) << "the number of the text";
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

TEST_F(OpenTest, OneDeviceIsOpenAtATimeAndDestructionClosesIt) {
  const std::uint32_t hub = machine->HidInstance("hub");
  EXPECT_EQ(0u, property->Yv_OpenDeviceByDevInst(hub));
  EXPECT_EQ(0u, property->Yv_OpenDeviceByDevInst(hub));
  EXPECT_EQ(kOneDevice, Handles());
  requests.SetProperty(nullptr);
  property.reset();
  EXPECT_EQ(kNoHandles, Handles());
}

TEST_F(OpenTest, AskingForTheFamilyLeavesNothingOpen) {
  const std::uint32_t hub = machine->HidInstance("hub");
  const std::string tag = "CHidProperty::Yv_IsWqHid", asked = "DevInst: " + std::to_string(hub);
  OpenHub();
  EXPECT_EQ(1u, property->Yv_IsWqHid(hub));
  EXPECT_EQ(kNoHandles, Handles());
  EXPECT_THAT(Logged(tag), ElementsAre(LogLine{0, tag, asked + ", WQ Hid Device\n"}));
  OpenHub();
  EXPECT_EQ(0u, property->Yv_IsWqHid(0));
  EXPECT_EQ(kNoHandles, Handles()) << "the open device was closed before";
  EXPECT_THAT(Logged(tag), ElementsAre(LogLine{3, tag, "DevInst: 0, Not WQ Hid Device\n"}));
}

TEST_F(OpenTest, AnIdListReplacesTheOneBefore) {
  VidPidList list = {{1, 2}};
  const TempFile file({'V', 'I', 'D', ':', '3', ' ', 'P', 'I', 'D', ':', '4'}, "ids.ini");
  EXPECT_TRUE(ReadVidPidList(file.path(), list));
  EXPECT_EQ((VidPidList{{3, 4}}), list);
  EXPECT_FALSE(ReadVidPidList(UniquePath("missing"), list));
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
