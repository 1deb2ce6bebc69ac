// Opening and closing of devices.
#include <cerrno>
#include <cstdlib>

#include "api/api_test.h"
#include "api/dev_list_cache.h"

namespace qzhid::test {
namespace {

constexpr const char* kOpen = "QZ_OpenHid";
constexpr const char* kClose = "QZ_CloseDev";

using OpenTest = ApiTest;
using OpenDeathTest = ApiTest;
using CloseTest = ApiTest;

TEST_F(OpenDeathTest, BeforeAnyListThereIsNothingToOpen) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process of its own
  EXPECT_EXIT(std::exit(QZ_OpenHid(world->HidInstance("hub")) == nullptr ? 0 : 1),
              ::testing::ExitedWithCode(0), "");
}

TEST_F(OpenTest, NumbersThatAreNoListedHubAreRefusedSilently) {
  List();
  HidDevRecord other{};
  other.dwInst = world->HidInstance("hub");
  other.dwDevType = 3;
  const std::uint32_t numbers[] = {0, world->HidInstance("keyboard"), world->UsbInstance("hub")};
  ClearRecords();
  for (const std::uint32_t number : numbers) EXPECT_EQ(nullptr, QZ_OpenHid(number)) << number;
  CDevListCache::Instance().Store(&other, 1);
  EXPECT_EQ(nullptr, QZ_OpenHid(other.dwInst)) << "a record of another kind";
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(Texts(4, "QZ Open Hid"), DebugTexts());
}

TEST_F(OpenTest, OpeningEnablesCommandsAndRaisesTheFrequency) {
  for (const std::uint32_t code : {0u, 41u}) {  // of the up-frequency request
    QZ_CloseDev(handle);
    List();
    const auto number = world->HidInstance("hub");
    if (code != 0) world->AddFault(Failing(Fault::On::Request, code, 0x4006));
    ClearRecords();
    handle = QZ_OpenHid(number);
    ASSERT_NE(nullptr, handle) << "its failure is only a warning";
    EXPECT_EQ(std::vector<Bytes>({Channel1({0x40, 0x02, 0x01, 0x00, 0x7C, 0x2E, 0x00, 0x00}),
                                  Channel1({0x40, 0x06, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00})}),
              Outputs());
    Lines lines = {
        {1, kOpen, Text("Open Hid Success,Hid DevInst is %d,DevObject is %p\n", number, handle)},
        {0, kOpen, Text("Open Hid Dev is %p\n", handle)}};
    if (code != 0) {
      lines.insert(lines.begin() + 1,
                   {3, kOpen, "WARNING!!,Failed to send up frequency command,ErrorCode:41\n"});
    }
    EXPECT_EQ(lines, log.Of(kOpen));
    EXPECT_EQ((Texts{"QZ Open Hid", Text("Open Hid Success, Hid DevInst is %d, DevObject is %p\n",
                                         number, handle)}),
              DebugTexts());
    EXPECT_EQ("CRequestCMD::QZ_InitProxyDriver", log.lines[0].tag);
    EXPECT_THAT(log.lines[0].text,
                ::testing::MatchesRegex("YvProxy lib built on ... [ 0-9]+ at [0-9:]+\n"));
  }
}

TEST_F(OpenTest, AHubThatDoesNotAnswerIsWaitedForAndLeftClean) {
  List();
  const auto number = world->HidInstance("hub");
  world->AddFault(Failing(Fault::On::Output, EPIPE));
  // 80 scans with 128 ms each; while it is there, also 50 attempts with 100 ms and a report each.
  for (const std::uint64_t lastsMs : {80u * 128u + 50u * 100u + 12u, 80u * 128u}) {
    ClearRecords();
    const std::uint64_t start = world->clock().NowUs();
    EXPECT_EQ(nullptr, QZ_OpenHid(number));
    EXPECT_EQ(lastsMs, (world->clock().NowUs() - start) / 1000);
    EXPECT_EQ(Lines({{3, kOpen, "Open Hid failed\n"}}), log.Of(kOpen));
    EXPECT_LE(OpenHandles(), 2) << "the device and its event of the last attempt";
    world->Unplug("hub");
  }
  QZ_CloseDev(nullptr);
  EXPECT_EQ(0, OpenHandles());
}

TEST_F(OpenTest, RequestsGoToTheHubThatWasOpenedLast) {
  InstallDevices(R"({"name": "a", "port": "1"}, {"name": "b", "port": "2"})");
  Open("a");
  void* const first = handle;
  const int openOne = OpenHandles();
  handle = QZ_OpenHid(world->HidInstance("b"));
  ASSERT_NE(nullptr, handle);
  EXPECT_EQ(1u, log.Count({0, "CRequestCMD::QZ_UnInitProxyDriver", "Unload Proxy Driver\n"}));
  EXPECT_EQ(openOne, OpenHandles());
  EXPECT_EQ(0u, QZ_HidGPIOW(first, 3, 1));
  EXPECT_FALSE(hub("a").gpio()[3]);
  EXPECT_TRUE(hub("b").gpio()[3]);
  // A failed opening takes the connection as well.
  const auto lost = world->HidInstance("a");
  world->Unplug("a");
  EXPECT_EQ(nullptr, QZ_OpenHid(lost));
  EXPECT_EQ(std::uint32_t{EBADF}, QZ_HidGPIOW(handle, 3, 0));
  QZ_CloseDev(first);
}

TEST_F(CloseTest, ClosingReducesTheFrequencyBeforeTheDeviceGoesAndTwiceDoesNothing) {
  Open();
  const Texts debug = {"QZ CloseDevice", Text("Frequency reduction Result is %p\n", handle)};
  QZ_CloseDev(handle);
  EXPECT_EQ(std::vector<Bytes>({Channel1({0x40, 0x06, 0, 0, 0, 0, 0, 0})}), Outputs());
  const Lines lines = {{3, kClose, "Frequency reduction Result is 0\n"},
                       {0, "CUSBDev::Remove", "Old State is UnknownState\n"},
                       {0, "CUSBDev::Remove", "current state is UnknownState\n"},
                       {0, "CRequestCMD::QZ_UnInitProxyDriver", "Unload Proxy Driver\n"}};
  EXPECT_EQ(lines, log.lines);
  EXPECT_EQ(debug, DebugTexts());
  EXPECT_EQ(0, OpenHandles());
  ClearRecords();
  QZ_CloseDev(handle);
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(debug, DebugTexts());
  Open();
  world->Unplug("hub");
  QZ_CloseDev(handle);
  EXPECT_EQ(Lines({{3, kClose, Text("Frequency reduction Result is %d\n", ENODEV)}}),
            log.Of(kClose));
}

TEST_F(CloseTest, WhatIsNoLiveHandleReleasesTheConnectionOnly) {
  int local = 0;
  for (void* const given : {static_cast<void*>(nullptr), static_cast<void*>(&local)}) {
    Open();
    QZ_CloseDev(given);
    EXPECT_EQ(std::vector<std::uint16_t>{0x4006}, Keys());
    EXPECT_TRUE(log.Of("CUSBDev::Remove").empty());
    EXPECT_EQ(0, OpenHandles());
    EXPECT_EQ(0u, QZ_HidI2CConfig(handle, 0xA0, 2, 1)) << "the handle lives on";
    ClearRecords();
    QZ_CloseDev(handle);
    EXPECT_FALSE(log.Of("CUSBDev::Remove").empty());
    EXPECT_TRUE(log.Of(kClose).empty()) << "there is no connection left to slow down";
  }
}

}  // namespace
}  // namespace qzhid::test
