// Log files: what gets into them, and which file the log goes to.
#include "log/log_responder.h"
#include "support/private_library.h"

namespace qzhid::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;
using ::testing::StartsWith;

/// Has a folder of its own and an empty hub.
class LogFileTest : public LibraryTest {
 protected:
  LogFileTest() : folder(UniquePath("folder")) {
    CMsg::Instance().ClearResponders();
    fs::remove_all(folder);
    fs::create_directories(folder);
  }
  ~LogFileTest() override { fs::remove_all(folder); }

  std::string At(const std::string& name) const {
    return (folder / name).make_preferred().string();
  }

  fs::path folder;
};

TEST_F(LogFileTest, OpeningEmptiesTheFileAndEachLineIsInItAtOnceAndNothingElse) {
  WriteText(At("log.txt"), "an older log\n");
  CLogResponder file(At("log.txt").c_str());
  EXPECT_EQ("", ReadText(At("log.txt")));
  CMsg::Instance().AddResponder(&file);
  CMsg::Instance().Print(3, "write flash complete %d%%\r", 10);
  CMsg::Instance().Notify("Wait Dev Connect", 3);
  CMsg::Instance().Progress(100);
  for (std::string text; text.size() < 200;) {
    CMsg::Instance().Log(0, "t", "=\n");
    EXPECT_EQ(text += "[2024-03-07, 09:05:02]  t, =\n", ReadText(At("log.txt")));
  }
  CMsg::Instance().RemoveResponder(&file);
}

TEST_F(LogFileTest, LinesBelowTheThresholdAreDropped) {
  CLogResponder file(At("log.txt").c_str());
  for (int level = 0; level <= 3; ++level) file.OnLog("=", level);  // the threshold is 0 at first
  for (int threshold = -1; threshold <= 4; ++threshold) {
    file.SetLevel(threshold);
    file.OnLog("|", 100);
    for (int level = 0; level <= 3; ++level) file.OnLog(std::to_string(level).c_str(), level);
  }
  EXPECT_EQ("====|0123|0123|123|23|3|", ReadText(At("log.txt")));
}

TEST_F(LogFileTest, FileThatCannotBeOpenedDiscardsEverythingSilently) {
  ::testing::internal::CaptureStderr();
  for (const std::string& path : {At("missing/log.txt"), folder.string()}) {
    CLogResponder file(path.c_str());
    file.OnLog("line\n", 3);
  }
  EXPECT_EQ("", ::testing::internal::GetCapturedStderr());
  EXPECT_FALSE(fs::exists(folder / "missing"));
}

TEST_F(LogFileTest, FailureToCloseIsReportedOnStandardError) {
  if (!fs::exists("/dev/full")) GTEST_SKIP() << "needs a device that is always full";
  ::testing::internal::CaptureStderr();
  {
    CLogResponder file("/dev/full");
    file.OnLog("line\n", 0);
  }
  EXPECT_EQ("Failed to close the file: No space left on device\n",
            ::testing::internal::GetCapturedStderr());
}

TEST_F(LogFileTest, LogPathMustNameAFileInAFolderThatMayBeReadAndWritten) {
  WriteText(At("old.txt"), "kept");
  fs::create_directories(folder / "sub");
  for (const std::string& path : {At("new.txt"), At("old.txt"), At("sub/new.txt")}) {
    EXPECT_EQ(1, QZ_SetLogPath(path.c_str())) << path;
  }
  for (const std::string& path : {At("sub"), At("sub/"), At("missing/new.txt"),
                                  At("old.txt/new.txt"), std::string("new.txt"), std::string()}) {
    EXPECT_EQ(0, QZ_SetLogPath(path.c_str())) << path;
  }
  EXPECT_EQ(0, QZ_SetLogPath(nullptr));
  EXPECT_EQ("kept", ReadText(At("old.txt")));  // only a path was chosen
  EXPECT_FALSE(fs::exists(folder / "new.txt"));
  EXPECT_EQ(std::vector<std::string>(10, "QZ_SetLogPath"), world->recorder().DebugTexts());
}

// The log file of a process is chosen once, so this runs in a process of its own.
using LogFileDeathTest = LogFileTest;

void Log(int level, const char* text) { CMsg::Instance().Log(level, "t", "%s\n", text); }
std::string Line(const std::string& text) { return "[2024-03-07, 09:05:02]  t, " + text + "\n"; }

TEST_F(LogFileDeathTest, ConfigLogSwitchesTheFileThatWasChosenFirst) {
  WriteText(At("log.txt"), "an older log\n");
  const auto run = [&] {
    LogCapture dropped;
    QZ_SetLogPath(At("unused.txt").c_str());
    QZ_SetLogPath(At("log.txt").c_str());
    QZ_SetLogPath(folder.c_str());  // refused, so that the path before it stays
    world->recorder().Clear();
    int sum = QZ_ConfigLog(1, 2);
    Log(1, "below");
    Log(2, "at the threshold");
    sum += QZ_ConfigLog(1, 3);  // registers the file anew, not twice
    Log(2, "now below");
    Log(3, "once");
    sum += QZ_ConfigLog(0, 0);
    Log(3, "off");
    sum += QZ_ConfigLog(255, 0);
    Log(0, "on again");
    const std::vector<std::string> debug(4, "Create Log");
    if (sum != 4 || !dropped.lines.empty() || debug != world->recorder().DebugTexts()) std::exit(1);
    if (QZ_SetLogPath(At("second.txt").c_str()) != 1) std::exit(2);
    QZ_ConfigLog(1, 0);
    Log(0, "where it was");
    std::exit(0);
  };
  EXPECT_EXIT(run(), ExitedWithCode(0), "^$");
  EXPECT_EQ(Line("at the threshold") + Line("once") + Line("on again") + Line("where it was"),
            ReadText(At("log.txt")));
  EXPECT_FALSE(fs::exists(At("unused.txt")));
  EXPECT_FALSE(fs::exists(At("second.txt")));
}

TEST_F(LogFileTest, DefaultLogStandsBesideTheLibraryAndEachProcessBeginsItAnew) {
  const PrivateLibrary library(R"({"time": "virtual", "devices": []})");
  const fs::path file = library.folder() / "info.txt";
  library.List(0);
  EXPECT_THAT(ReadText(file), StartsWith("[2024-03-07, 09:05:02]  QZ_ListAllHidDev, Enter --->\n"));
  EXPECT_THAT(ReadText(file), HasSubstr("]  CRequestCMD::CRequestCMD, OS Type:"));
  library.List(3);
  EXPECT_EQ("[2024-03-07, 09:05:02]  QZ_ListAllHidDev, List Hid Device Fail\n", ReadText(file));
}

}  // namespace
}  // namespace qzhid::test
