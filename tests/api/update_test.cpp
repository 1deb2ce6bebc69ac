// Whole updates.
#include <algorithm>

#include "api/api_test.h"

namespace qzhid::test {
namespace {

std::vector<int> g_progress;
void KeepProgress(std::int32_t percent) { g_progress.push_back(percent); }

/// The conversation with the hub, a text for each request: key, index and value, length; "!" marks
/// a refused one. Requests whose address moves on by their length count as one.
Texts Conversation(const virtualhub::Recorder& recorder) {
  Texts texts;
  std::uint32_t next = 0, count = 0;
  std::string last;
  for (const auto& record : recorder.Of(virtualhub::Record::Kind::Request)) {
    const std::uint32_t address = virtualhub::LittleEndian32(record.setup, 2);
    const std::uint32_t length = virtualhub::LittleEndian16(record.setup, 6);
    const std::string kind =
        Text("%s%04X +%u", record.result.ok() ? "" : "!", record.key(), length);
    if (kind == last && address == next) {
      texts.back() = texts.back().substr(0, texts.back().find(" x")) + Text(" x%u", ++count);
    } else {
      texts.push_back(Text("%s @%08X", kind.c_str(), address));
      count = 1;
    }
    last = kind;
    next = address + length;
  }
  return texts;
}

Texts operator+(Texts texts, const Texts& more) {
  texts.insert(texts.end(), more.begin(), more.end());
  return texts;
}

const Texts kArrive = {"4002 +0 @2E7C0001"};
const Texts kStatus = {"C009 +20 @00000000"};
const Texts kToRom = {"4000 +0 @00000000"};
// Back after 750 ms, found by the scan at 768 ms, ready after 850 ms.
const Texts kReturn = {"!4002 +0 @2E7C0001", "4002 +0 @2E7C0001"};
const Texts kErase = {"4002 +0 @2E7C0001", "40E8 +0 @00000000"};
const Texts kWrite = {"4002 +0 @2E7C0003", "C009 +20 @00000000",       "4006 +0 @00000001",
                      "40E8 +0 @00000100", "40C8 +128 @00000000 x255", "40C8 +40 @00007F80"};
const Texts kCompare = {"C0D8 +128 @00000000 x255", "C0D8 +40 @00007F80"};
const Texts kValidate = {"40D9 +0 @00000001"};
const Texts kStart = Texts{"40E9 +0 @00000101"} + kReturn;

const struct {
  const char* hub;  ///< more members of the hub
  bool isDual, runsRom;
  Texts conversation;  ///< without the start of the new firmware
} kCases[] = {
    {"", false, false,
     kArrive + kStatus + kStatus + kToRom + kReturn + kStatus + kErase + kWrite + kCompare},
    {R"(, "running": "rom")", false, true, kArrive + kStatus + kErase + kWrite + kCompare},
    {R"(, "dual_bank": true)", true, false,
     kArrive + kStatus + kStatus + kWrite + kStatus + kCompare},
    {R"(, "dual_bank": true, "isp_supported": true)", true, false,
     kArrive + kStatus + kStatus + kWrite + kStatus + kValidate}};

using UpdateTest = ApiTest;

TEST_F(UpdateTest, HubsInAnyModeTakeTheImageInTheirConversation) {
  const Bytes image = virtualhub::BuildImage({.version = 0x0210}, 0x7FA8);  // 255 x 128 + 40
  const TempFile file(image);
  for (const auto& mode : kCases) {
    for (const bool starts : {true, false}) {
      SCOPED_TRACE(Text("%s, starts: %d", mode.hub, starts));
      InstallDevices(Text(R"({"name": "hub", "port": "3.1"%s})", mode.hub));
      Open();
      QZ_DllPassPara(starts ? 0 : 5);
      std::uint16_t version = 0xEEEE;
      EXPECT_EQ(mode.runsRom ? 0 : 1, QZ_ReadDevVersion(handle, &version));
      EXPECT_EQ(mode.runsRom ? 0xEEEE : 0x0102, version);
      ClearRecords();
      g_progress.clear();
      EXPECT_EQ(1, QZ_UpdateDev(handle, file.path(), starts ? KeepProgress : nullptr));
      EXPECT_EQ(mode.conversation + (starts ? kStart : Texts()), Conversation(world->recorder()));
      EXPECT_EQ(starts ? log.progress : std::vector<int>(), g_progress);
      EXPECT_EQ(starts ? 1u : 0u, log.Count({3, "QZ_UpdateDev", "Notify Progress\n"}));
      EXPECT_EQ(0, OpenHandles());
      const auto contents = hub().bank(mode.isDual ? 1 : 0).contents();
      EXPECT_TRUE(std::equal(image.begin(), image.end(), contents.begin()));
      EXPECT_EQ(starts || mode.isDual, hub().code() == virtualhub::Code::Flash);
      EXPECT_EQ(starts || mode.isDual ? 1 : 0, QZ_ReadDevVersion(handle, &version))
          << "the handle finds the hub again";
      EXPECT_EQ(starts ? 0x0210 : mode.runsRom ? 0xEEEE : 0x0102, version);
    }
  }
}

TEST_F(UpdateTest, ProgressRisesByStepsAndWithTheChunks) {
  const TempFile file(virtualhub::BuildImage({}, 0x7FA8));
  Open();
  g_progress.clear();
  EXPECT_EQ(1, QZ_UpdateDev(handle, file.path(), KeepProgress));
  ASSERT_EQ(4u + 255u + 3u, g_progress.size());
  EXPECT_TRUE(std::is_sorted(g_progress.begin(), g_progress.end()));
  EXPECT_EQ((std::vector<int>{0, 10, 20, 30, 30}),
            std::vector<int>(g_progress.begin(), g_progress.begin() + 5));
  EXPECT_EQ((std::vector<int>{69, 70, 90, 100}),
            std::vector<int>(g_progress.end() - 4, g_progress.end()));
}

}  // namespace
}  // namespace qzhid::test
