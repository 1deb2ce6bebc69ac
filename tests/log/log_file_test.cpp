// Log files: what gets into them, and which file the log goes to.
#include <dlfcn.h>
#include <unistd.h>

#include "log/log_responder.h"
#include "support/private_library.h"

namespace qzhid::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ExitedWithCode;
using ::testing::StartsWith;

/// Has a folder of its own and an empty hub.
class LogFileTest : public LibraryTest {
 protected:
  LogFileTest() : folder(UniquePath("folder")) {
    CMsg::Instance().ClearResponders();
    fs::create_directories(folder);
  }
  ~LogFileTest() override { fs::remove_all(folder); }

  std::string At(const std::string& name) const { return (folder / name).string(); }

  fs::path folder;
};

void Log(int level, const char* text) { CMsg::Instance().Log(level, "t", "%s\n", text); }
std::string Line(const std::string& text) { return "[2024-03-07, 09:05:02]  t, " + text + "\n"; }

TEST_F(LogFileTest, OpeningEmptiesTheFileAndEachLineIsInItAtOnceAndNothingElse) {
  WriteText(At("log.txt"), "an older log\n");
  CLogResponder file(At("log.txt").c_str());
  EXPECT_EQ("", ReadText(At("log.txt")));
  CMsg::Instance().AddResponder(&file);
  CMsg::Instance().Print(3, "write flash complete %d%%\r", 10);
  CMsg::Instance().Notify("Wait Dev Connect", 3);
  CMsg::Instance().Progress(100);
  Log(0, "=");
  EXPECT_EQ(Line("="), ReadText(At("log.txt")));
  CMsg::Instance().RemoveResponder(&file);
  CLogResponder(At("missing/log.txt").c_str()).OnLog("discarded", 3);
}

TEST_F(LogFileTest, LinesBelowTheThresholdAreDropped) {
  CLogResponder file(At("log.txt").c_str());
  for (int threshold = -1; threshold <= 4; ++threshold) {
    file.SetLevel(threshold);
    file.OnLog("|", 100);
    for (int level = 0; level <= 3; ++level) file.OnLog(std::to_string(level).c_str(), level);
  }
  EXPECT_EQ("|0123|0123|123|23|3|", ReadText(At("log.txt")));
}

TEST_F(LogFileTest, LogPathMustNameAFileInAFolderThatMayBeReadAndWritten) {
  WriteText(At("old.txt"), "kept");
  fs::create_directories(folder / "sub");
  EXPECT_EQ(1, QZ_SetLogPath(At("old.txt").c_str()));
  EXPECT_EQ(1, QZ_SetLogPath(At("sub/new.txt").c_str()));
  for (const std::string& path : {At("sub"), At("sub/"), At("missing/new.txt"),
                                  At("old.txt/new.txt"), std::string("new.txt"), std::string()}) {
    EXPECT_EQ(0, QZ_SetLogPath(path.c_str())) << path;
  }
  EXPECT_EQ(0, QZ_SetLogPath(nullptr));
  EXPECT_EQ("kept", ReadText(At("old.txt")));  // only a path was chosen
  EXPECT_EQ(std::vector<std::string>(9, "QZ_SetLogPath"), machine->recorder().DebugTexts());
}

// The log file of a process is chosen once, so this runs in a process of its own.
using LogFileDeathTest = LogFileTest;

TEST_F(LogFileDeathTest, ConfigLogSwitchesTheFileThatWasChosenFirst) {
  WriteText(At("log.txt"), "an older log\n");
  const auto run = [&] {
    QZ_SetLogPath(At("unused.txt").c_str());
    QZ_SetLogPath(At("log.txt").c_str());
    QZ_SetLogPath(folder.c_str());  // refused, so that the path before it stays
    int sum = QZ_ConfigLog(1, 2);
    Log(1, "below");
    Log(2, "at the threshold");
    sum += QZ_ConfigLog(1, 3);  // registers the file anew, not twice
    Log(2, "now below");
    Log(3, "once");
    QZ_SetLogPath(At("too late.txt").c_str());
    sum += QZ_ConfigLog(0, 0);
    Log(3, "off");
    sum += QZ_ConfigLog(255, 0);
    Log(0, "on again");
    const std::vector<std::string> debug = machine->recorder().DebugTexts();
    // Four switches, each with its text for the debugger.
    std::exit(sum * 10 + static_cast<int>(std::count(debug.begin(), debug.end(), "Create Log")));
  };
  EXPECT_EXIT(run(), ExitedWithCode(44), "^$");
  EXPECT_EQ(Line("at the threshold") + Line("once") + Line("on again"), ReadText(At("log.txt")));
  EXPECT_EQ(1, std::distance(fs::directory_iterator(folder), {}));
}

TEST_F(LogFileTest, DefaultLogStandsBesideTheLibraryAndEachProcessBeginsItAnew) {
  const PrivateLibrary library(R"({"time": "virtual", "devices": []})");
  const fs::path file = library.folder() / "info.txt";
  library.List(0);
  EXPECT_THAT(ReadText(file), StartsWith("[2024-03-07, 09:05:02]  QZ_ListAllHidDev, Enter --->\n"));
  library.List(3);
  EXPECT_EQ("[2024-03-07, 09:05:02]  QZ_ListAllHidDev, List Hid Device Fail\n", ReadText(file));
}

TEST_F(LogFileDeathTest, LogAndIdListAreBesideALibraryThatWasLoadedFromTheFolderOfThatTime) {
  const PrivateLibrary library(R"({"time": "virtual", "devices": [
    {"name": "here", "port": "1", "kind": "other", "vid": "0x1111", "pid": "0x0001"},
    {"name": "there", "port": "2", "kind": "other", "vid": "0x2222", "pid": "0x0002"}]})");
  WriteText(library.folder() / "VidPid.ini", "VID:1111 PID:0001\n");
  WriteText(At("VidPid.ini"), "VID:2222 PID:0002\n");
  const auto run = [&] {
    fs::current_path(library.folder());
    setenv("QZ_VIRTUAL_HUB", (library.folder() / "scenario.json").c_str(), 1);
    const std::string file = "./" + fs::path(QZ_LIBRARY_FILE).filename().string();
    void* const loaded = dlopen(file.c_str(), RTLD_NOW);
    fs::current_path(folder);
    reinterpret_cast<decltype(&QZ_ConfigLog)>(dlsym(loaded, "QZ_ConfigLog"))(1, 0);
    HidDevRecord* list = nullptr;
    std::uint32_t count = 0;
    reinterpret_cast<decltype(&QZ_ListAllHidDev)>(dlsym(loaded, "QZ_ListAllHidDev"))(&list, &count);
    _exit(count == 1 ? list->VID[0] : 0);
  };
  EXPECT_EXIT(run(), ExitedWithCode('1'), "^$");
  EXPECT_THAT(ReadText(library.folder() / "info.txt"), ::testing::HasSubstr("QZ_ListAllHidDev"));
  EXPECT_FALSE(fs::exists(folder / "info.txt"));
}

}  // namespace
}  // namespace qzhid::test
