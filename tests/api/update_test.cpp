// Whole updates, updates that have no image, and callbacks that call back.
#include <algorithm>
#include <filesystem>
#include <functional>
#include <set>
#include <utility>

#include "api/api_test.h"

namespace qzhid::test {
namespace {

constexpr const char* kFlow = "CUniversalFlow::DevUpdate";

std::vector<int> g_progress;
std::function<void()> g_atTen, g_atThirty;
void OnProgress(std::int32_t percent) {
  g_progress.push_back(percent);
  if (percent == 10 && g_atTen) g_atTen();
  if (percent == 30 && g_atThirty) std::exchange(g_atThirty, nullptr)();
}

/// The conversation with the hub, a line for each request: key, length, value and index; "!" marks
/// a refused one. Requests whose address moves on by their length count as one.
std::string Conversation(const virtualhub::Recorder& recorder) {
  std::string all, last;
  std::size_t begin = 0;  // of the last line
  std::uint32_t first = 0, next = 0, count = 0;
  for (const auto& record : recorder.Of(virtualhub::Record::Kind::Request)) {
    const std::uint32_t address = virtualhub::LittleEndian32(record.setup, 2);
    const std::uint32_t length = virtualhub::LittleEndian16(record.setup, 6);
    const auto kind = Text("%s%04X +%u @", record.result.ok() ? "" : "!", record.key(), length);
    if (kind != last || address != next) {
      begin = all.size();
      first = address;
      count = 0;
    }
    all.resize(begin);
    all += kind + Text("%08X", first) + (++count > 1 ? Text(" x%u\n", count) : "\n");
    last = kind;
    next = address + length;
  }
  return all;
}

const std::string kArrive = "4002 +0 @2E7C0001\n", kStatus = "C009 +20 @00000000\n";
const std::string kToRom = "4000 +0 @00000000\n", kValidate = "40D9 +0 @00000001\n";
// Back after 750 ms, found by the scan at 768 ms, ready after 850 ms.
const std::string kReturn = "!4002 +0 @2E7C0001\n4002 +0 @2E7C0001\n";
const std::string kErase = "4002 +0 @2E7C0001\n40E8 +0 @00000000\n";
const std::string kWrite =
    "4002 +0 @2E7C0003\nC009 +20 @00000000\n4006 +0 @00000001\n40E8 +0 @00000100\n"
    "40C8 +128 @00000000 x255\n40C8 +40 @00007F80\n";
const std::string kCompare = "C0D8 +128 @00000000 x255\nC0D8 +40 @00007F80\n";
const std::string kStart = "40E9 +0 @00000101\n" + kReturn;

const struct {
  const char* hub;  ///< more members of the hub
  bool isDual;
  std::string conversation;  ///< without the start of the new firmware
} kCases[] = {
    {"", false,
     kArrive + kStatus + kStatus + kToRom + kReturn + kStatus + kErase + kWrite + kCompare},
    {R"(, "running": "rom")", false, kArrive + kStatus + kErase + kWrite + kCompare},
    {R"(, "dual_bank": true)", true, kArrive + kStatus + kStatus + kWrite + kStatus + kCompare},
    {R"(, "dual_bank": true, "isp_supported": true)", true,
     kArrive + kStatus + kStatus + kWrite + kStatus + kValidate}};

class UpdateTest : public ApiTest {
 protected:
  UpdateTest() {
    g_atTen = g_atThirty = nullptr;
    Open();
  }

  void Start(const char* path, std::uint8_t expected, const std::vector<int>& progress) {
    g_progress.clear();
    ClearRecords();
    EXPECT_EQ(expected, QZ_UpdateDev(handle, path, OnProgress));
    EXPECT_EQ(progress, g_progress);
  }

  /// Whether the bank begins with the image.
  bool Holds(std::size_t bank, const Bytes& expected) {
    const auto contents = hub().bank(bank).contents();
    return std::equal(expected.begin(), expected.end(), contents.begin());
  }

  /// That the callback was told of a whole update: each percent of the write, upwards.
  static void ExpectWholeProgress() {
    std::set<int> values = {0, 10, 20, 90, 100};
    for (int percent = 30; percent <= 70; ++percent) values.insert(percent);
    EXPECT_EQ(values, std::set<int>(g_progress.begin(), g_progress.end()));
    EXPECT_TRUE(std::is_sorted(g_progress.begin(), g_progress.end()));
  }

  /// Neither reset nor erased.
  void ExpectOldFirmware() {
    EXPECT_EQ(instance, machine->HidInstance("hub"));
    EXPECT_TRUE(Holds(0, virtualhub::BuildImage({}, 0x10000)));
  }

  const Bytes image = virtualhub::BuildImage({.version = 0x0210}, 0x7FA8);  // 255 x 128 + 40
  const TempFile good{image, "good"};
  const virtualhub::DevInst instance = machine->HidInstance("hub");
};

TEST_F(UpdateTest, HubsInAnyModeTakeTheImageInTheirConversation) {
  for (const auto& [members, isDual, conversation] : kCases) {
    for (const bool starts : {true, false}) {
      SCOPED_TRACE(Text("%s, starts: %d", members, starts));
      OpenHub(members);
      QZ_DllPassPara(starts ? 0 : 5);
      g_progress.clear();
      EXPECT_EQ(1, QZ_UpdateDev(handle, good.path(), starts ? OnProgress : nullptr));
      EXPECT_EQ(conversation + (starts ? kStart : ""), Conversation(machine->recorder()));
      // Where a thread that starts switches the log on, one of the system's own ends the reports.
      const bool areReportsEnded = DebugTexts().find("Create Log") != std::string::npos;
      if (starts && !areReportsEnded) ExpectWholeProgress();
      EXPECT_EQ(starts, !g_progress.empty()) << "nobody is told after the call";
      EXPECT_EQ(starts ? "3 Notify Progress\n" : "", Said("QZ_UpdateDev"));
      EXPECT_EQ(0, OpenHandles());
      EXPECT_TRUE(Holds(isDual ? 1 : 0, image));
      EXPECT_EQ(starts || isDual, hub().code() == virtualhub::Code::Flash);
      std::uint16_t version = 0;  // the handle finds the hub again
      EXPECT_EQ(starts || isDual ? 1 : 0, QZ_ReadDevVersion(handle, &version));
      EXPECT_EQ(starts ? 0x0210 : isDual ? 0x0102 : 0, version);
    }
  }
}

TEST_F(UpdateTest, AHubInACompositeDeviceIsUpdatedLikeAnyOther) {
  OpenHub(R"(, "part": "MI_01&Col02", "siblings": ["MI_00", "MI_01&Col01"])");
  EXPECT_EQ(1, QZ_UpdateDev(handle, good.path(), OnProgress));
  EXPECT_EQ(0x0210, hub().Identity().version);
}

TEST_F(UpdateTest, AMissingFileIsToldBeforeTheHubIsTouched) {
  const std::string missing = UniquePath("missing.bin");
  for (const char* path : {missing.c_str(), ""}) {
    Start(path, 0, {});
    EXPECT_EQ(Text("3 Notify Progress\n3 Fw File is Not Exist,FWPath:%s\n", path),
              Said("QZ_UpdateDev"));
    EXPECT_TRUE(Outputs().empty());
  }
  EXPECT_EQ(0u, QZ_HidGPIOW(handle, 1, 1)) << "the device is still open";
  ExpectOldFirmware();
}

TEST_F(UpdateTest, AFileThatCannotBeLoadedNeverCostsTheFirmware) {
  const TempFile empty({}, "empty");
  const std::string unreadable = UniquePath("closed");
  const UnopenableFile closed(unreadable);
  ASSERT_TRUE(closed.made());
  const LogLine notLoaded = {1, "CHubFwFinder::LoadFwbin2Buf", "load fw to buf return failed.\n"};
  std::uint16_t version = 0;
  for (const std::string& path : {std::string(empty.path()), ::testing::TempDir(), unreadable}) {
    SCOPED_TRACE(path);
    // What an earlier job loaded must not be written instead.
    ASSERT_EQ(1, QZ_ReadBinVersion(handle, good.path(), &version));
    Start(path.c_str(), 0, {0, 10, 0});
    EXPECT_EQ(1u, Count(notLoaded));
    EXPECT_EQ(1u, Count({3, kFlow, "\nfail to write flash\n"}));
    EXPECT_EQ("3 Notify Progress\n3 Update Fail\n", Said("QZ_UpdateDev"));
    EXPECT_EQ((std::vector<std::uint16_t>{0x4002, 0xC009}), Keys());
    ExpectOldFirmware();
  }
}

TEST_F(UpdateTest, AnyImageThatWasLoadedIsWritten) {
  const std::pair<std::size_t, std::string> cases[] = {
      {1, "40C8 +1 @00000000\n"},
      {300, "40C8 +128 @00000000 x2\n40C8 +44 @00000100\n"},
      {0x7F53, "40C8 +128 @00000000 x254\n40C8 +83 @00007F00\n"}};
  for (const auto& [size, written] : cases) {
    SCOPED_TRACE(size);
    OpenHub("");
    const Bytes part(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_EQ(1, QZ_UpdateDev(handle, TempFile(part).path(), nullptr));
    EXPECT_THAT(Conversation(machine->recorder()), ::testing::HasSubstr(written));
    EXPECT_TRUE(Holds(0, part));
  }
  const TempFile tooLong({}, "long");
  std::filesystem::resize_file(tooLong.path(), 17 * 1024 * 1024);
  OpenHub("");
  EXPECT_EQ(0, QZ_UpdateDev(handle, tooLong.path(), nullptr));
  EXPECT_THAT(Conversation(machine->recorder()), ::testing::HasSubstr("\n!40C8 +128 @"))
      << "the hub is what has no room for it";
}

TEST_F(UpdateTest, ReconfiguringTheLogInTheCallbackEndsTheProgressOnly) {
  g_atTen = [] { EXPECT_EQ(1, QZ_ConfigLog(0, 0)); };
  Start(good.path(), 1, {0, 10});
  EXPECT_EQ(0x0210, hub().Identity().version);
}

TEST_F(UpdateTest, ClosingInTheCallbackFailsTheUpdateInTime) {
  g_atTen = [&] { QZ_CloseDev(handle); };
  Start(good.path(), 0, {0, 10, 0});
  EXPECT_EQ(1u, Count({3, kFlow, "fail to reset to rom\n"}));
  EXPECT_EQ(0, OpenHandles());
  EXPECT_EQ(kStatusRefused, QZ_HidI2CConfig(handle, 0xA0, 2, 1));
  ExpectOldFirmware();
}

TEST_F(UpdateTest, AnImageLoadedInTheCallbackIsNotTheOneThatIsWritten) {
  void* reopened = nullptr;
  g_atThirty = [&] {
    const TempFile empty({}, "empty");
    std::uint16_t version = 0;
    EXPECT_EQ(0, QZ_ReadBinVersion(handle, empty.path(), &version));
    List();
    reopened = QZ_OpenHid(machine->HidInstance("hub"));
  };
  EXPECT_EQ(1, QZ_UpdateDev(handle, good.path(), OnProgress));
  g_atThirty = nullptr;
  EXPECT_TRUE(Holds(0, image));
  QZ_CloseDev(reopened);
}

}  // namespace
}  // namespace qzhid::test
