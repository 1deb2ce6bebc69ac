// Opening and closing of devices.
#include <functional>

#include "api/api_test.h"

namespace qzhid::test {
namespace {

using OpenCloseTest = ApiTest;

TEST_F(OpenCloseTest, OpeningEnablesCommandsAndRaisesTheFrequency) {
  const auto number = machine->HidInstance("hub");
  List();
  for (const char* warning :
       {"", "3 WARNING!!,Failed to send up frequency command,ErrorCode:41\n"}) {
    if (*warning != 0) machine->AddFault(Failing(Fault::On::Request, 41, 0x4006));
    QZ_CloseDev(handle);
    ClearRecords();
    handle = QZ_OpenHid(number);
    ASSERT_NE(nullptr, handle) << "a failure is only a warning";
    EXPECT_EQ(std::vector<Bytes>({Report(1, {0x40, 0x02, 0x01, 0x00, 0x7C, 0x2E, 0x00, 0x00}),
                                  Report(1, {0x40, 0x06, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00})}),
              Outputs());
    EXPECT_EQ(Text("1 Open Hid Success,Hid DevInst is %d,DevObject is HANDLE\n"
                   "%s0 Open Hid Dev is HANDLE\n",
                   number, warning),
              Said("QZ_OpenHid"));
    EXPECT_THAT(Said("CRequestCMD::QZ_InitProxyDriver").text,
                ::testing::HasSubstr(" YvProxy lib built on "));
  }
}

TEST_F(OpenCloseTest, AHubThatDoesNotAnswerIsWaitedForAndLeftClean) {
  List();
  const auto number = machine->HidInstance("hub");
  machine->AddFault(Failing(Fault::On::Output, kStalled));
  // 80 scans with 128 ms each; while it is there, also 50 attempts with 100 ms and a report each.
  for (const std::uint64_t lastsMs : {80u * 128u + 50u * 100u + 12u, 80u * 128u}) {
    ClearRecords();
    const std::uint64_t start = machine->clock().NowUs();
    EXPECT_EQ(nullptr, QZ_OpenHid(number));
    EXPECT_EQ(lastsMs, (machine->clock().NowUs() - start) / 1000);
    EXPECT_EQ("3 Open Hid failed\n", Said("QZ_OpenHid"));
    EXPECT_LE(OpenHandles(), 2) << "the device and its event of the last attempt";
    machine->Unplug("hub");
  }
  QZ_CloseDev(nullptr);
  EXPECT_EQ(0, OpenHandles());
}

TEST_F(OpenCloseTest, RequestsGoToTheHubThatWasOpenedLast) {
  Install(virtualhub::ReadScenario(
      R"({"record": true, "devices": [{"name": "a", "port": "1"}, {"name": "b", "port": "2"}]})"));
  Open("a");
  void* const first = handle;
  handle = QZ_OpenHid(machine->HidInstance("b"));
  EXPECT_EQ(2, OpenHandles()) << "one device and its event";
  EXPECT_EQ(0u, QZ_HidGPIOW(first, 3, 1));
  EXPECT_FALSE(machine->hub("a").gpio()[3]);
  EXPECT_TRUE(machine->hub("b").gpio()[3]);
  const auto lost = machine->HidInstance("a");
  machine->Unplug("a");
  EXPECT_EQ(nullptr, QZ_OpenHid(lost)) << "which takes the connection as well";
  EXPECT_EQ(kInvalidHandle, QZ_HidGPIOW(handle, 3, 0));
  QZ_CloseDev(first);
}

TEST_F(OpenCloseTest, AReleasedConnectionFailsUpdatesAndVersionsUntilTheHubIsOpenedAnew) {
  const auto number = machine->HidInstance("hub");
  const TempFile image(virtualhub::BuildImage({.version = 0x0210}, 0x7FA8));
  const std::function<void()> releases[] = {[] { List(); }, [] { QZ_CloseDev(nullptr); },
                                            [=] {
                                              std::uint32_t id = 0;
                                              QZ_GetHubVIDPIDFromHidDevice(number, &id, &id);
                                            }};
  for (const auto& release : releases) {
    Open();
    release();
    ClearRecords();
    const std::uint64_t start = machine->clock().NowUs();
    std::uint16_t version = 0;
    EXPECT_EQ(0, QZ_ReadDevVersion(handle, &version));
    EXPECT_EQ(0, QZ_UpdateDev(handle, image.path(), nullptr));
    EXPECT_TRUE(Outputs().empty());
    EXPECT_EQ("3 Update Fail\n", Said("QZ_UpdateDev"));
    EXPECT_EQ(start, machine->clock().NowUs()) << "at once";
    EXPECT_EQ(1, QZ_ReadBinVersion(handle, image.path(), &version)) << "needs no hub";
    void* const released = handle;
    handle = QZ_OpenHid(number);
    EXPECT_EQ(1, QZ_ReadDevVersion(released, &version)) << "any connection will do";
    QZ_CloseDev(released);
  }
}

TEST_F(OpenCloseTest, UpdatesAndVersionsFindTheHubOfTheirHandle) {
  Install(virtualhub::ReadScenario(
      R"({"record": true, "devices": [{"name": "a", "port": "1"}, {"name": "b", "port": "2"}]})"));
  const TempFile image(virtualhub::BuildImage({.version = 0x0210}, 0x7FA8));
  Open("a");
  void* const first = handle;
  handle = QZ_OpenHid(machine->HidInstance("b"));
  EXPECT_EQ(1, QZ_UpdateDev(first, image.path(), nullptr));
  EXPECT_EQ(0x0210, machine->hub("a").Identity().version);
  std::uint16_t version = 0;
  EXPECT_EQ(1, QZ_ReadDevVersion(handle, &version));
  EXPECT_EQ(0x0102, version);
  QZ_CloseDev(first);
}

TEST_F(OpenCloseTest, AnyCollectionOfItsInterfaceOpensAHubAndNoOtherInterface) {
  OpenHub(R"(, "part": "MI_01&Col02", "siblings": ["MI_00", "MI_01&Col01"])");
  HidDevRecord* list = nullptr;
  std::uint32_t count = 0;
  ASSERT_EQ(1, QZ_ListAllHidDev(&list, &count));
  const std::vector<HidDevRecord> records(list, list + count);
  QZ_FreeDevList(list);
  ASSERT_EQ(3u, records.size());
  for (const HidDevRecord& record : records) {
    const bool isOfItsInterface = record.Port == 1;
    void* const opened = QZ_OpenHid(record.dwInst);
    EXPECT_EQ(isOfItsInterface, opened != nullptr);
    EXPECT_EQ(isOfItsInterface ? 0u : kStatusRefused, QZ_HidI2CConfig(opened, 0xA0, 2, 1));
    QZ_CloseDev(opened);
  }
}

TEST_F(OpenCloseTest, ClosingReducesTheFrequencyBeforeTheDeviceGoesAndTwiceDoesNothing) {
  Open();
  QZ_CloseDev(handle);
  EXPECT_EQ(std::vector<Bytes>({Report(1, {0x40, 0x06, 0, 0, 0, 0, 0, 0})}), Outputs());
  EXPECT_EQ(
      "3 QZ_CloseDev: Frequency reduction Result is 0\n"
      "0 CUSBDev::Remove: Old State is UnknownState\n"
      "0 CUSBDev::Remove: current state is UnknownState\n"
      "0 CRequestCMD::QZ_UnInitProxyDriver: Unload Proxy Driver\n",
      Said());
  EXPECT_EQ("QZ CloseDevice|Frequency reduction Result is HANDLE\n|", DebugTexts());
  EXPECT_EQ(0, OpenHandles());
  ClearRecords();
  QZ_CloseDev(handle);
  EXPECT_EQ("", Said());
  Open();
  machine->Unplug("hub");
  QZ_CloseDev(handle);
  EXPECT_EQ(Text("3 Frequency reduction Result is %d\n", kGone), Said("QZ_CloseDev"));
}

TEST_F(OpenCloseTest, WhatIsNoLiveHandleReleasesTheConnectionOnly) {
  int local = 0;
  for (void* const given : {static_cast<void*>(nullptr), static_cast<void*>(&local)}) {
    Open();
    QZ_CloseDev(given);
    EXPECT_EQ(std::vector<std::uint16_t>{0x4006}, Keys());
    EXPECT_EQ("", Said("CUSBDev::Remove"));
    EXPECT_EQ(0, OpenHandles());
    EXPECT_EQ(0u, QZ_HidI2CConfig(handle, 0xA0, 2, 1)) << "the handle lives on";
    ClearRecords();
    QZ_CloseDev(handle);
    EXPECT_NE("", Said("CUSBDev::Remove"));
    EXPECT_EQ("", Said("QZ_CloseDev")) << "there is no connection left to slow down";
  }
}

}  // namespace
}  // namespace qzhid::test
