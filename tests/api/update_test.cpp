// Whole updates, updates that have no image, and callbacks that call back.
#include <algorithm>
#include <filesystem>
#include <functional>
#include <set>
#include <utility>

#include "api/api_test.h"

namespace qzhid::test {
namespace {

using ::testing::Contains;

constexpr const char* kUpdate = "QZ_UpdateDev";
constexpr const char* kFlow = "CUniversalFlow::DevUpdate";

std::vector<int> g_progress;
std::function<void(int percent)> g_onProgress;
void OnProgress(std::int32_t percent) {
  g_progress.push_back(percent);
  if (g_onProgress) g_onProgress(percent);
}

/// The conversation with the hub: key, length, value and index of each request; "!" marks a refused
/// one. Requests whose address moves on by their length count as one.
std::vector<std::string> Conversation(const virtualhub::Recorder& recorder) {
  std::vector<std::string> steps;
  std::string last;
  std::uint32_t first = 0, next = 0, count = 0;
  for (const auto& record : recorder.Of(virtualhub::Record::Kind::Request)) {
    const std::uint32_t address = virtualhub::LittleEndian32(record.setup, 2);
    const std::uint32_t length = virtualhub::LittleEndian16(record.setup, 6);
    const auto kind = Text("%s%04X +%u", record.result.ok() ? "" : "!", record.key(), length);
    const bool goesOn = kind == last && address == next;
    if (!goesOn) {
      steps.emplace_back();
      first = address;
      count = 0;
    }
    steps.back() = kind + Text(" @%X", first) + (++count > 1 ? Text(" x%u", count) : "");
    last = kind;
    next = address + length;
  }
  return steps;
}

const std::string kArrive = "4002 +0 @2E7C0001", kTooEarly = "!4002 +0 @2E7C0001";
const std::string kStatus = "C009 +20 @0", kToRom = "4000 +0 @0", kErase = "40E8 +0 @0";
const std::string kStartFirmware = "40E9 +0 @101";

class UpdateTest : public ApiTest {
 protected:
  UpdateTest() {
    g_progress.clear();
    g_onProgress = nullptr;
    Open();
  }
  ~UpdateTest() override { g_onProgress = nullptr; }

  /// Calls this at that percentage, once.
  static void At(int moment, std::function<void()> call) {
    g_onProgress = [moment, call = std::move(call)](int percent) {
      if (percent == moment) std::exchange(g_onProgress, nullptr), call();
    };
  }

  void Start(const char* path, std::uint8_t expected, const std::vector<int>& progress) {
    g_progress.clear();
    ClearRecords();
    EXPECT_EQ(expected, QZ_UpdateDev(handle, path, OnProgress));
    EXPECT_EQ(progress, g_progress);
  }

  /// The hub was neither reset nor erased.
  void ExpectOldFirmware() {
    EXPECT_EQ(instance, machine->HidInstance("hub"));
    EXPECT_TRUE(Holds(virtualhub::BuildImage({}, 0x10000)));
  }

  const Bytes image = virtualhub::BuildImage({.version = 0x0210}, 0x7FA8);  // 255 x 128 + 40
  const TempFile good{image, "good"};
  const virtualhub::DevInst instance = machine->HidInstance("hub");
};

/// A way in which hubs are updated.
struct Way {
  const char* members;  ///< more JSON members of the hub
  bool isDual;
  std::vector<std::string> conversation;  ///< before the start of the new firmware
};

class UpdateWayTest : public UpdateTest, public ::testing::WithParamInterface<Way> {};

const std::vector<std::string> kWrite = {"4002 +0 @2E7C0003", kStatus,
                                         "4006 +0 @1",        "40E8 +0 @100",
                                         "40C8 +128 @0 x255", "40C8 +40 @7F80"};
const std::vector<std::string> kCompare = {"C0D8 +128 @0 x255", "C0D8 +40 @7F80"};

std::vector<std::string> Joined(const std::vector<std::vector<std::string>>& parts) {
  std::vector<std::string> all;
  for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// Back after 750 ms, found by the scan at 768 ms, ready after 850 ms.
INSTANTIATE_TEST_SUITE_P(
    Hubs, UpdateWayTest,
    ::testing::Values(Way{"", false,
                          Joined({{kArrive, kStatus, kStatus, kToRom, kTooEarly, kArrive, kStatus,
                                   kArrive, kErase},
                                  kWrite,
                                  kCompare})},
                      Way{R"(, "running": "rom")", false,
                          Joined({{kArrive, kStatus, kArrive, kErase}, kWrite, kCompare})},
                      Way{R"(, "dual_bank": true)", true,
                          Joined({{kArrive, kStatus, kStatus}, kWrite, {kStatus}, kCompare})},
                      Way{R"(, "dual_bank": true, "isp_supported": true)", true,
                          Joined({{kArrive, kStatus, kStatus}, kWrite, {kStatus, "40D9 +0 @1"}})}));

TEST_P(UpdateWayTest, AHubTakesTheImageAndStartsItWithEachPercentReportedInOrder) {
  const Way& way = GetParam();
  OpenHub(way.members);
  EXPECT_EQ(1, QZ_UpdateDev(handle, good.path(), OnProgress));
  EXPECT_EQ(Joined({way.conversation, {kStartFirmware, kTooEarly, kArrive}}),
            Conversation(machine->recorder()));
  // Where a thread that starts switches the log on, one of the system's own ends the reports.
  const std::vector<std::string> texts = DebugTexts();
  if (std::count(texts.begin(), texts.end(), "Create Log") == 0) {
    std::set<int> values = {0, 10, 20, 90, 100};
    for (int percent = 30; percent <= 70; ++percent) values.insert(percent);
    EXPECT_EQ(values, std::set<int>(g_progress.begin(), g_progress.end()));
    EXPECT_TRUE(std::is_sorted(g_progress.begin(), g_progress.end()));
  }
  EXPECT_EQ((Lines{{3, kUpdate, "Notify Progress\n"}}), Logged(kUpdate));
  EXPECT_EQ(kNoHandles, Handles());
  EXPECT_TRUE(Holds(image, way.isDual ? 1 : 0));
  EXPECT_EQ(virtualhub::Code::Flash, hub().code());
  std::uint16_t version = 0;
  EXPECT_EQ(1, QZ_ReadDevVersion(handle, &version)) << "the handle finds the hub again";
  EXPECT_EQ(0x0210, version);
}

TEST_P(UpdateWayTest, AHubTakesTheImageAndIsNotStartedWhenTheHostWantsThatWithoutProgress) {
  const Way& way = GetParam();
  OpenHub(way.members);
  QZ_DllPassPara(5);
  EXPECT_EQ(1, QZ_UpdateDev(handle, good.path(), nullptr));
  EXPECT_EQ(way.conversation, Conversation(machine->recorder()));
  EXPECT_THAT(g_progress, IsEmpty());
  EXPECT_EQ(Lines{}, Logged(kUpdate));
  EXPECT_EQ(kNoHandles, Handles());
  EXPECT_TRUE(Holds(image, way.isDual ? 1 : 0));
  EXPECT_EQ(way.isDual ? virtualhub::Code::Flash : virtualhub::Code::Rom, hub().code());
  std::uint16_t version = 0;
  EXPECT_EQ(way.isDual ? 1 : 0, QZ_ReadDevVersion(handle, &version));
  EXPECT_EQ(way.isDual ? 0x0102 : 0, version) << "the old firmware, or the loader";
}

TEST_F(UpdateTest, AHubInACompositeDeviceIsUpdatedLikeAnyOther) {
  OpenHub(R"(, "part": "MI_01&Col02", "siblings": ["MI_00", "MI_01&Col01"])");
  EXPECT_EQ(1, QZ_UpdateDev(handle, good.path(), OnProgress));
  EXPECT_EQ(0x0210, hub().Identity().version);
}

TEST_F(UpdateTest, AMissingFileIsReportedBeforeTheHubIsTouched) {
  const std::string missing = UniquePath("missing.bin");
  for (const char* path : {missing.c_str(), ""}) {
    Start(path, 0, {});
    EXPECT_EQ((Lines{{3, kUpdate, "Notify Progress\n"},
                     {3, kUpdate, Text("Fw File is Not Exist,FWPath:%s\n", path)}}),
              Logged(kUpdate));
    EXPECT_THAT(Outputs(), IsEmpty());
  }
  EXPECT_EQ(kOneDevice, Handles()) << "the device is still open";
  ExpectOldFirmware();
}

TEST_F(UpdateTest, AFileThatCannotBeLoadedNeverCostsTheFirmware) {
  const TempFile empty({}, "empty");
  const std::string unreadable = UniquePath("closed");
  const UnopenableFile closed(unreadable);
  ASSERT_TRUE(std::filesystem::exists(unreadable));
  const LogLine notLoaded = {1, "CHubFwFinder::LoadFwbin2Buf", "load fw to buf return failed.\n"};
  std::uint16_t version = 0;
  for (const std::string& path : {std::string(empty.path()), ::testing::TempDir(), unreadable}) {
    SCOPED_TRACE(path);
    // What an earlier job loaded must not be written instead.
    ASSERT_EQ(1, QZ_ReadBinVersion(handle, good.path(), &version));
    Start(path.c_str(), 0, {0, 10, 0});
    EXPECT_EQ(1u, Count(notLoaded));
    EXPECT_EQ(1u, Count({3, kFlow, "\nfail to write flash\n"}));
    EXPECT_EQ((Lines{{3, kUpdate, "Notify Progress\n"}, {3, kUpdate, "Update Fail\n"}}),
              Logged(kUpdate));
    EXPECT_THAT(Keys(), ElementsAre(0x4002, 0xC009));
    ExpectOldFirmware();
  }
}

TEST_F(UpdateTest, AnImageOfAnyLengthThatWasLoadedIsWritten) {
  const std::pair<std::size_t, std::string> cases[] = {
      {1, "40C8 +1 @0"}, {300, "40C8 +128 @0 x2"}, {0x7F53, "40C8 +83 @7F00"}};
  for (const auto& [size, written] : cases) {
    SCOPED_TRACE(size);
    OpenHub();
    const Bytes part(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_EQ(1, QZ_UpdateDev(handle, TempFile(part).path(), nullptr));
    EXPECT_THAT(Conversation(machine->recorder()), Contains(written));
    EXPECT_TRUE(Holds(part));
  }
}

TEST_F(UpdateTest, AnImageThatTheHubHasNoRoomForIsRefusedByTheHub) {
  const TempFile tooLong({}, "long");
  std::filesystem::resize_file(tooLong.path(), 17 * 1024 * 1024);
  EXPECT_EQ(0, QZ_UpdateDev(handle, tooLong.path(), nullptr));
  EXPECT_THAT(Conversation(machine->recorder()), Contains(::testing::StartsWith("!40C8 +128 @")));
}

TEST_F(UpdateTest, ReconfiguringTheLogInTheCallbackEndsTheProgressOnly) {
  At(10, [] { EXPECT_EQ(1, QZ_ConfigLog(0, 0)); });
  Start(good.path(), 1, {0, 10});
  EXPECT_EQ(0x0210, hub().Identity().version);
}

TEST_F(UpdateTest, ClosingInTheCallbackFailsTheUpdateInTime) {
  At(10, [&] { QZ_CloseDev(handle); });
  Start(good.path(), 0, {0, 10, 0});
  EXPECT_EQ(1u, Count({3, kFlow, "fail to reset to rom\n"}));
  EXPECT_EQ(kNoHandles, Handles());
  EXPECT_EQ(kRejected, QZ_HidI2CConfig(handle, 0xA0, 2, 1));
  ExpectOldFirmware();
}

TEST_F(UpdateTest, AnImageThatTheCallbackLoadsIsNotTheOneThatIsWritten) {
  void* reopened = nullptr;
  At(30, [&] {
    const TempFile empty({}, "empty");
    std::uint16_t version = 0;
    EXPECT_EQ(0, QZ_ReadBinVersion(handle, empty.path(), &version));
    List();
    reopened = QZ_OpenHid(machine->HidInstance("hub"));
  });
  EXPECT_EQ(1, QZ_UpdateDev(handle, good.path(), OnProgress));
  EXPECT_TRUE(Holds(image));
  EXPECT_EQ(nullptr, reopened) << "an update is running";
}

}  // namespace
}  // namespace qzhid::test
