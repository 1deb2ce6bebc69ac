// Opening and closing of devices: what is sent and logged, and what is open at each moment.
#include "api/api_calls.h"

namespace qzhid::test {
namespace {

class OpenCloseTest : public ApiTest {
 protected:
  const TempFile image{virtualhub::BuildImage({.version = 0x0210}, 0x7FA8)};
  const std::uint32_t number = machine->HidInstance("hub");
  std::uint16_t version = 0;
  std::uint32_t id = 0;
};

const Bytes kEnable = Report(1, Hex("40 02 01 00 7C 2E"));
const Bytes kRaiseFrequency = Report(1, Hex("40 06 01")),
            kReduceFrequency = Report(1, Hex("40 06"));

TEST_F(OpenCloseTest, OpeningEnablesCommandsAndRaisesTheFrequencyOrWarns) {
  constexpr const char* kTag = "QZ_OpenHid";
  List();
  ClearRecords();
  handle = QZ_OpenHid(number);
  ASSERT_NE(nullptr, handle);
  EXPECT_EQ(kOneDevice, Handles());
  EXPECT_THAT(Outputs(), ElementsAre(kEnable, kRaiseFrequency));
  EXPECT_EQ((Lines{{1, kTag,
                    Text("Open Hid Success,Hid DevInst is %d,DevObject is %p\n", number, handle)},
                   {0, kTag, Text("Open Hid Dev is %p\n", handle)}}),
            Logged(kTag));
  EXPECT_THAT(
      DebugTexts(),
      ElementsAre("QZ Open Hid",
                  Text("Open Hid Success, Hid DevInst is %d, DevObject is %p\n", number, handle)));
  const Lines made = Logged("CRequestCMD::QZ_InitProxyDriver");
  ASSERT_EQ(1u, made.size());
  EXPECT_THAT(made[0].text,
              ::testing::MatchesRegex(
                  "YvProxy lib built on \\w\\w\\w .\\w \\w\\w\\w\\w at \\w\\w:\\w\\w:\\w\\w\n"));
  machine->AddFault(RequestFault(0x4006, 1, 0, Fault::Action::Fail, 41));
  EXPECT_NE(nullptr, QZ_OpenHid(number));
  EXPECT_EQ(kOneDevice, Handles());
  EXPECT_EQ(1u, Count({3, kTag, "WARNING!!,Failed to send up frequency command,ErrorCode:41\n"}));
}

TEST_F(OpenCloseTest, AHubThatDoesNotAnswerIsWaitedForAndNothingIsLeftOpen) {
  List();
  machine->AddFault(ReportFault(Fault::On::Output, kStalled, 0));
  // 80 scans with 128 ms each; while it is there, also 50 attempts with 100 ms and a report each.
  for (const std::uint64_t lastsMs : {80u * 128u + 50u * 100u + 12u, 80u * 128u}) {
    ClearRecords();
    const std::uint64_t start = machine->clock().NowUs();
    EXPECT_EQ(nullptr, QZ_OpenHid(number));
    EXPECT_EQ(lastsMs, (machine->clock().NowUs() - start) / 1000);
    EXPECT_EQ((Lines{{3, "QZ_OpenHid", "Open Hid failed\n"}}), Logged("QZ_OpenHid"));
    EXPECT_EQ(kNoHandles, Handles());
    machine->Unplug("hub");
  }
}

TEST_F(OpenCloseTest, RequestsGoToTheHubThatWasOpenedLastAndJobsToTheHubOfTheirHandle) {
  OpenFirstOfTwo();
  void* const first = handle;
  handle = QZ_OpenHid(machine->HidInstance("other"));
  EXPECT_EQ(kOneDevice, Handles()) << "the first is closed";
  EXPECT_EQ(0u, QZ_HidGPIOW(first, 3, 1));
  EXPECT_FALSE(hub("hub").gpio()[3]);
  EXPECT_TRUE(hub("other").gpio()[3]);
  EXPECT_EQ(1, QZ_UpdateDev(first, image.path(), nullptr));
  EXPECT_EQ(0x0210, hub("hub").Identity().version);
  EXPECT_EQ(1, QZ_ReadDevVersion(handle, &version));
  EXPECT_EQ(0x0102, version);
  Open("other");
  QZ_CloseDev(first);
  EXPECT_EQ(kNoHandles, Handles()) << "whichever handle is closed";
  Open("other");
  const auto lost = machine->HidInstance("hub");
  machine->Unplug("hub");
  EXPECT_EQ(nullptr, QZ_OpenHid(lost));
  EXPECT_EQ(kNoHandles, Handles()) << "also by an opening that fails";
  EXPECT_EQ(kInvalidHandle, QZ_HidGPIOW(handle, 3, 0));
}

TEST_F(OpenCloseTest, AReleasedConnectionFailsAllThatNeedsTheHubUntilItIsOpenedAgain) {
  const auto readIds = [&] { return QZ_GetHubVIDPIDFromHidDevice(number, &id, &id); };
  const std::pair<std::uint32_t, std::function<std::uint32_t()>> releases[] = {
      {kRejected, [] { return List(); }},
      {kRejected, [] { return QZ_CloseDev(nullptr), 1; }},
      {kRejected, readIds},
      {kInvalidHandle, [&] { return QZ_ReadBinVersion(handle, image.path(), &version); }},
      {kInvalidHandle, [&] { return QZ_ReadDevVersion(handle, &version); }},
      {kInvalidHandle, [&] { return QZ_UpdateDev(handle, image.path(), nullptr); }}};
  for (const auto& [code, release] : releases) {
    OpenHub();
    EXPECT_EQ(1u, release());
    EXPECT_EQ(kNoHandles, Handles());
    ClearRecords();
    for (const ApiCall& call : kApiCalls) EXPECT_EQ(call.Result(code), call.call(handle));
    EXPECT_EQ(kNoHandles, Handles());
    if (code != kRejected) continue;  // a job finds the hub again
    const std::uint64_t start = machine->clock().NowUs();
    EXPECT_EQ(0, QZ_ReadDevVersion(handle, &version));
    EXPECT_EQ(0, QZ_UpdateDev(handle, image.path(), nullptr));
    EXPECT_EQ((Lines{{3, "QZ_UpdateDev", "Update Fail\n"}}), Logged("QZ_UpdateDev"));
    EXPECT_EQ(start, machine->clock().NowUs()) << "at once";
    EXPECT_THAT(Outputs(), IsEmpty());
    EXPECT_EQ(1, QZ_ReadBinVersion(handle, image.path(), &version)) << "needs no hub";
    List();
    void* const reopened = QZ_OpenHid(number);
    EXPECT_EQ(1, QZ_ReadDevVersion(handle, &version)) << "any connection will do";
    EXPECT_EQ(kNoHandles, Handles());
    QZ_CloseDev(reopened);
  }
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
    EXPECT_EQ(isOfItsInterface ? kOneDevice : kNoHandles, Handles());
    QZ_CloseDev(opened);
  }
}

TEST_F(OpenCloseTest, ClosingReducesTheFrequencyBeforeTheDeviceGoesAndTwiceDoesNothing) {
  Open();
  QZ_CloseDev(handle);
  EXPECT_THAT(Outputs(), ElementsAre(kReduceFrequency));
  EXPECT_EQ((Lines{{3, "QZ_CloseDev", "Frequency reduction Result is 0\n"},
                   {0, "CUSBDev::Remove", "Old State is UnknownState\n"},
                   {0, "CUSBDev::Remove", "current state is UnknownState\n"},
                   {0, "CRequestCMD::QZ_UnInitProxyDriver", "Unload Proxy Driver\n"}}),
            Logged());
  EXPECT_THAT(DebugTexts(),
              ElementsAre("QZ CloseDevice", Text("Frequency reduction Result is %p\n", handle)));
  EXPECT_EQ(kNoHandles, Handles());
  ClearRecords();
  QZ_CloseDev(handle);
  EXPECT_EQ(Lines{}, Logged());
  Open();
  machine->Unplug("hub");
  QZ_CloseDev(handle);
  EXPECT_EQ((Lines{{3, "QZ_CloseDev", Text("Frequency reduction Result is %d\n", kGone)}}),
            Logged("QZ_CloseDev"));
  EXPECT_EQ(kNoHandles, Handles());
}

TEST_F(OpenCloseTest, ClosingAnInvalidHandleReleasesTheConnectionAndNoHandle) {
  int local = 0;
  for (void* const given : {static_cast<void*>(nullptr), static_cast<void*>(&local)}) {
    Open();
    QZ_CloseDev(given);
    EXPECT_THAT(Keys(), ElementsAre(0x4006));
    EXPECT_EQ(Lines{}, Logged("CUSBDev::Remove"));
    EXPECT_EQ(kNoHandles, Handles());
    EXPECT_EQ(0u, QZ_HidI2CConfig(handle, 0xA0, 2, 1)) << "the handle lives on";
    ClearRecords();
    QZ_CloseDev(handle);
    EXPECT_EQ(2u, Logged("CUSBDev::Remove").size());
    EXPECT_EQ(Lines{}, Logged("QZ_CloseDev")) << "there is no connection left to slow down";
  }
}

}  // namespace
}  // namespace qzhid::test
