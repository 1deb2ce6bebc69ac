// Whole updates, and updates without a usable image. Callbacks that call the library: see
// concurrency/crossing_calls_test.cpp.
#include <algorithm>
#include <filesystem>
#include <set>

#include "api/api_test.h"
#include "virtualhub/base/crc32.h"

namespace qzhid::test {
namespace {

constexpr const char* kUpdate = "QZ_UpdateDev";

std::vector<int> g_progress;
void OnProgress(std::int32_t percent) { g_progress.push_back(percent); }

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

/// A way in which hubs are updated.
struct Way {
  const char* name;
  const char* members;  ///< more JSON members of the hub
  bool isDual;
  Keys16 before, after;    ///< the requests before and after the image is written, without repeats
  std::uint32_t checksum;  ///< of all reports
};

const Keys16 kFromFlash = {0x4002, 0xC009, 0x4000, 0x4002, 0xC009, 0x4002, 0x40E8},
             kFromRom = {0x4002, 0xC009, 0x4002, 0x40E8}, kBeside = {0x4002, 0xC009},
             kCompare = {0xC0D8}, kValidate = {0xC009, 0x40D9};
const Way kWays[] = {
    {"Firmware", "", false, kFromFlash, kCompare, 0x9D7F4B57},
    {"Composite", R"(, "part": "MI_01&Col02", "siblings": ["MI_00", "MI_01&Col01"])", false,
     kFromFlash, kCompare, 0xD18062B5},
    {"Loader", R"(, "running": "rom")", false, kFromRom, kCompare, 0x5C1E3DB0},
    {"TwoBanks", R"(, "dual_bank": true)", true, kBeside, {0xC009, 0xC0D8}, 0x0945921D},
    {"Validating", R"(, "dual_bank": true, "isp_supported": true)", true, kBeside, kValidate,
     0xC3CA499C}};

class UpdateWayTest : public UpdateTest, public ::testing::WithParamInterface<Way> {};
INSTANTIATE_TEST_SUITE_P(Hubs, UpdateWayTest, ::testing::ValuesIn(kWays),
                         [](const auto& given) { return given.param.name; });

TEST_P(UpdateWayTest, AHubTakesTheImageAndStartsItUnlessTheHostWantsOtherwise) {
  const Way& way = GetParam();
  for (const bool isStarted : {false, true}) {
    SCOPED_TRACE(isStarted);
    OpenHub(way.members);
    g_progress.clear();
    QZ_DllPassPara(isStarted ? 0 : 5);
    EXPECT_EQ(1, QZ_UpdateDev(handle, good.path(), isStarted ? OnProgress : nullptr));
    Keys16 expected = way.before, keys = Keys();
    expected.insert(expected.end(), {0x4002, 0xC009, 0x4006, 0x40E8, 0x40C8});
    expected.insert(expected.end(), way.after.begin(), way.after.end());
    if (isStarted) expected.insert(expected.end(), {0x40E9, 0x4002});
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    EXPECT_EQ(expected, keys);
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
  std::uint16_t version = 0;
  for (const std::string& path : {std::string(empty.path()), ::testing::TempDir()}) {
    // What an earlier job loaded must not be written instead.
    ASSERT_EQ(1, QZ_ReadBinVersion(handle, good.path(), &version));
    ExpectRefusal(path.c_str(), {0, 10, 0}, "Update Fail\n");
    EXPECT_EQ(1u, Count({1, "CHubFwFinder::LoadFwbin2Buf", "load fw to buf return failed.\n"}));
    EXPECT_EQ(1u, Count({3, "CUniversalFlow::DevUpdate", "\nfail to write flash\n"}));
    EXPECT_THAT(Keys(), ElementsAre(0x4002, 0xC009));
  }
}

TEST_F(UpdateTest, AnImageOfAnyLengthIsWrittenAsFarAsTheHubHasRoom) {
  const std::pair<std::size_t, bool> rows[] = {
      {1, true}, {300, true}, {0x7F53, true}, {17u << 20, false}};
  for (const auto& [size, isDone] : rows) {
    SCOPED_TRACE(size);
    OpenHub();
    Bytes part = image;
    part.resize(size);
    EXPECT_EQ(isDone ? 1 : 0, QZ_UpdateDev(handle, TempFile(part).path(), nullptr));
    const auto outputs = Outputs();
    const auto writes = std::count_if(outputs.begin(), outputs.end(),
                                      [](const Bytes& report) { return report[2] == 0xC8; });
    EXPECT_EQ(isDone ? (size + 127) / 128 : hub().bank(0).contents().size() / 128 + 1,
              static_cast<std::size_t>(writes));
    part.resize(std::min<std::size_t>(size, image.size()));
    EXPECT_TRUE(Holds(part));
  }
}

}  // namespace
}  // namespace qzhid::test
