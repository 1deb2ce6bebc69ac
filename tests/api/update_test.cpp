// Whole updates, and updates without a usable image. Callbacks that call the library: see
// concurrency/crossing_calls_test.cpp.
#include <algorithm>
#include <filesystem>
#include <set>

#include "api/api_test.h"
#include "virtualhub/base/crc32.h"

namespace qzhid::test {
namespace {

using ::testing::Contains;

constexpr const char* kUpdate = "QZ_UpdateDev";

std::vector<int> g_progress;
void OnProgress(std::int32_t percent) { g_progress.push_back(percent); }

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

/// The checksum of all reports on the wire, before each a byte for its direction (0 out, 1 in).
std::uint32_t WireChecksum(const virtualhub::Recorder& recorder) {
  std::uint32_t crc = 0;
  for (const auto& record : recorder.all()) {
    const bool isOut = record.kind == virtualhub::Record::Kind::Output;
    if (!isOut && record.kind != virtualhub::Record::Kind::Input) continue;
    const std::uint8_t direction = isOut ? 0 : 1;
    crc = virtualhub::Crc32(record.data, virtualhub::Crc32({&direction, 1}, crc));
  }
  return crc;
}

class UpdateTest : public ApiTest {
 protected:
  UpdateTest() { Open(); }

  /// An update that fails before the hub is reset or erased, with this progress and these lines of
  /// the export.
  void ExpectRefusal(const char* path, const std::vector<int>& progress, const char* line) {
    SCOPED_TRACE(path);
    g_progress.clear();
    ClearRecords();
    EXPECT_EQ(0, QZ_UpdateDev(handle, path, OnProgress));
    EXPECT_EQ(progress, g_progress);
    EXPECT_EQ((Lines{{3, kUpdate, "Notify Progress\n"}, {3, kUpdate, line}}), Logged(kUpdate));
    EXPECT_EQ(instance, machine->HidInstance("hub"));
    EXPECT_TRUE(Holds(virtualhub::BuildImage({}, 0x10000)));
  }

  const Bytes image = virtualhub::BuildImage({.version = 0x0210}, 0x7FA8);  // 255 x 128 + 40
  const TempFile good{image, "good"};
  const virtualhub::DevInst instance = machine->HidInstance("hub");
};

using Steps = std::vector<std::string>;

/// A way in which hubs are updated.
struct Way {
  const char* members;  ///< more JSON members of the hub
  bool isDual;
  Steps before, after;  ///< what is said before and after the image is written
  std::uint32_t checksum;
};

const std::string kArrive = "4002 +0 @2E7C0001", kTooEarly = "!4002 +0 @2E7C0001";
const std::string kStatus = "C009 +20 @0", kToRom = "4000 +0 @0", kErase = "40E8 +0 @0";
const std::string kCompare = "C0D8 +128 @0 x255", kCompareRest = "C0D8 +40 @7F80";
// A hub that resets is back after 750 ms, found by the scan at 768 ms, and ready after 850 ms.
const Steps kFromFlash = {kArrive, kStatus, kStatus, kToRom, kTooEarly,
                          kArrive, kStatus, kArrive, kErase};
const Steps kFromRom = {kArrive, kStatus, kArrive, kErase}, kBeside = {kArrive, kStatus, kStatus};
const Steps kWrite = {"4002 +0 @2E7C0003", kStatus,         "4006 +0 @1", "40E8 +0 @100",
                      "40C8 +128 @0 x255", "40C8 +40 @7F80"};
const Way kWays[] = {
    {"", false, kFromFlash, {kCompare, kCompareRest}, 0x9D7F4B57},
    {R"(, "running": "rom")", false, kFromRom, {kCompare, kCompareRest}, 0x5C1E3DB0},
    {R"(, "dual_bank": true)", true, kBeside, {kStatus, kCompare, kCompareRest}, 0x0945921D},
    {R"(, "dual_bank": true, "isp_supported": true)",
     true,
     kBeside,
     {kStatus, "40D9 +0 @1"},
     0xC3CA499C}};

class UpdateWayTest : public UpdateTest, public ::testing::WithParamInterface<Way> {};
INSTANTIATE_TEST_SUITE_P(Hubs, UpdateWayTest, ::testing::ValuesIn(kWays));

TEST_P(UpdateWayTest, AHubTakesTheImageAndStartsItUnlessTheHostWantsOtherwise) {
  const Way& way = GetParam();
  for (const bool isStarted : {false, true}) {
    SCOPED_TRACE(isStarted);
    OpenHub(way.members);
    g_progress.clear();
    QZ_DllPassPara(isStarted ? 0 : 5);
    EXPECT_EQ(1, QZ_UpdateDev(handle, good.path(), isStarted ? OnProgress : nullptr));
    Steps steps = way.before;
    steps.insert(steps.end(), kWrite.begin(), kWrite.end());
    steps.insert(steps.end(), way.after.begin(), way.after.end());
    if (isStarted) steps.insert(steps.end(), {"40E9 +0 @101", kTooEarly, kArrive});
    EXPECT_EQ(steps, Conversation(machine->recorder()));
    if (isStarted) {
      EXPECT_EQ(way.checksum, WireChecksum(machine->recorder()));
    }
    // Where a thread that starts switches the log on, one of the system's own ends the reports.
    const std::vector<std::string> texts = DebugTexts();
    if (std::count(texts.begin(), texts.end(), "Create Log") == 0) {
      std::set<int> values;
      if (isStarted) values = {0, 10, 20, 90, 100};
      for (int percent = 30; isStarted && percent <= 70; ++percent) values.insert(percent);
      EXPECT_EQ(values, std::set<int>(g_progress.begin(), g_progress.end()));
      EXPECT_TRUE(std::is_sorted(g_progress.begin(), g_progress.end()));
    }
    EXPECT_EQ(isStarted ? (Lines{{3, kUpdate, "Notify Progress\n"}}) : Lines{}, Logged(kUpdate));
    EXPECT_EQ(kNoHandles, Handles());
    EXPECT_TRUE(Holds(image, way.isDual ? 1 : 0));
    const bool isLoader = !isStarted && !way.isDual;
    EXPECT_EQ(isLoader ? virtualhub::Code::Rom : virtualhub::Code::Flash, hub().code());
    std::uint16_t version = 0;
    EXPECT_EQ(isLoader ? 0 : 1, QZ_ReadDevVersion(handle, &version)) << "finds the hub again";
    EXPECT_EQ(isLoader ? 0 : isStarted ? 0x0210 : 0x0102, version);
  }
}

TEST_F(UpdateTest, AHubInACompositeDeviceIsUpdatedLikeAnyOther) {
  OpenHub(R"(, "part": "MI_01&Col02", "siblings": ["MI_00", "MI_01&Col01"])");
  EXPECT_EQ(1, QZ_UpdateDev(handle, good.path(), OnProgress));
  EXPECT_EQ(0x0210, hub().Identity().version);
}

TEST_F(UpdateTest, AMissingFileIsReportedBeforeTheHubIsTouched) {
  const std::string missing = UniquePath("missing.bin");
  for (const std::string& path : {missing, std::string()}) {
    ExpectRefusal(path.c_str(), {}, Text("Fw File is Not Exist,FWPath:%s\n", path.c_str()).c_str());
    EXPECT_THAT(Outputs(), IsEmpty());
  }
  EXPECT_EQ(kOneDevice, Handles()) << "the device is still open";
}

TEST_F(UpdateTest, AFileThatCannotBeLoadedNeverCostsTheFirmware) {
  const TempFile empty({}, "empty");
  const std::string unreadable = UniquePath("closed");
  const UnopenableFile closed(unreadable);
  ASSERT_TRUE(std::filesystem::exists(unreadable));
  std::uint16_t version = 0;
  for (const std::string& path : {std::string(empty.path()), ::testing::TempDir(), unreadable}) {
    // What an earlier job loaded must not be written instead.
    ASSERT_EQ(1, QZ_ReadBinVersion(handle, good.path(), &version));
    ExpectRefusal(path.c_str(), {0, 10, 0}, "Update Fail\n");
    EXPECT_EQ(1u, Count({1, "CHubFwFinder::LoadFwbin2Buf", "load fw to buf return failed.\n"}));
    EXPECT_EQ(1u, Count({3, "CUniversalFlow::DevUpdate", "\nfail to write flash\n"}));
    EXPECT_THAT(Keys(), ElementsAre(0x4002, 0xC009));
  }
}

TEST_F(UpdateTest, AnImageOfAnyLengthIsWrittenAsFarAsTheHubHasRoom) {
  const std::tuple<std::size_t, bool, std::string> rows[] = {{1, true, "40C8 +1 @0"},
                                                             {300, true, "40C8 +44 @100"},
                                                             {0x7F53, true, "40C8 +83 @7F00"},
                                                             {17u << 20, false, "!40C8 +128 @"}};
  for (const auto& [size, isDone, written] : rows) {
    SCOPED_TRACE(size);
    OpenHub();
    Bytes part = image;
    part.resize(size);
    EXPECT_EQ(isDone ? 1 : 0, QZ_UpdateDev(handle, TempFile(part).path(), nullptr));
    EXPECT_THAT(Conversation(machine->recorder()), Contains(::testing::StartsWith(written)));
    part.resize(std::min<std::size_t>(size, image.size()));
    EXPECT_TRUE(Holds(part));
  }
}

}  // namespace
}  // namespace qzhid::test
