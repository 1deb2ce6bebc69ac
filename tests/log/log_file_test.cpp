// Log files: what gets into them, and which file the log goes to.
#include <unistd.h>

#include "log/log_responder.h"
#include "support/layer_test.h"
#include "support/private_library.h"

namespace qzhid::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::ExitedWithCode;
using ::testing::StartsWith;

/// Has a folder of its own and no receivers in the message hub.
class LogFileTest : public LayerTest {
 protected:
  LogFileTest() { CMsg::Instance().ClearResponders(); }

  const ScratchFolder folder;
  const std::string file = folder.At("log.txt");
};

void Log(int level, const char* text) { CMsg::Instance().Log(level, "t", "%s\n", text); }
std::string Line(const std::string& text) { return "[2024-03-07, 09:05:02]  t, " + text + "\n"; }

TEST_F(LogFileTest, ALineIsInTheFileAtOnceAndNothingButLinesIs) {
  CLogResponder receiver(file.c_str());
  CMsg::Instance().AddResponder(&receiver);
  CMsg::Instance().Print(3, "write flash complete %d%%\r", 10);
  CMsg::Instance().Notify("Wait Dev Connect", 3);
  CMsg::Instance().Progress(100);
  Log(0, "=");
  EXPECT_EQ(Line("="), ReadText(file));
  CMsg::Instance().RemoveResponder(&receiver);
}

TEST_F(LogFileTest, LinesBelowTheThresholdAreDropped) {
  CLogResponder receiver(file.c_str());
  for (int threshold = -1; threshold <= 4; ++threshold) {
    receiver.SetLevel(threshold);
    receiver.OnLog("|", 100);
    for (int level = 0; level <= 3; ++level) receiver.OnLog(std::to_string(level).c_str(), level);
  }
  EXPECT_EQ("|0123|0123|123|23|3|", ReadText(file));
}

TEST_F(LogFileTest, ALogPathMustNameAFileInAFolderThatCanBeReadAndWritten) {
  WriteText(file, "kept");
  fs::create_directories(folder.path / "sub");
  EXPECT_EQ(1, QZ_SetLogPath(file.c_str()));
  EXPECT_EQ(1, QZ_SetLogPath(folder.At("sub/new.txt").c_str()));
  for (const std::string& path : {folder.At("sub"), folder.At("sub/"), folder.At("missing/new.txt"),
                                  file + "/new.txt", std::string("new.txt"), std::string()}) {
    EXPECT_EQ(0, QZ_SetLogPath(path.c_str())) << path;
  }
  EXPECT_EQ(0, QZ_SetLogPath(nullptr));
  EXPECT_EQ("kept", ReadText(file)) << "only a path was chosen";
  EXPECT_EQ(std::vector<std::string>(9, "QZ_SetLogPath"), machine->recorder().DebugTexts());
}

// The log file of a process is chosen once, so these run in processes of their own.
using LogFileDeathTest = LogFileTest;

TEST_F(LogFileDeathTest, TheFileThatWasChosenFirstIsSwitchedOnAndOff) {
  WriteText(file, "an older log\n");
  const auto run = [&] {
    QZ_SetLogPath(folder.At("unused.txt").c_str());
    QZ_SetLogPath(file.c_str());
    QZ_SetLogPath(folder.path.c_str());  // refused, so that the path before it stays
    int sum = QZ_ConfigLog(1, 2);
    Log(1, "below");
    Log(2, "at the threshold");
    sum += QZ_ConfigLog(1, 3);  // registers the file anew, not twice
    Log(2, "now below");
    Log(3, "once");
    QZ_SetLogPath(folder.At("too late.txt").c_str());
    sum += QZ_ConfigLog(0, 0);
    Log(3, "off");
    sum += QZ_ConfigLog(255, 0);
    Log(0, "on again");
    const std::vector<std::string> debug = machine->recorder().DebugTexts();
    std::exit(sum * 10 + static_cast<int>(std::count(debug.begin(), debug.end(), "Create Log")));
  };
  EXPECT_EXIT(run(), ExitedWithCode(44), "^$") << "four switches, each with its debug text";
  EXPECT_EQ(Line("at the threshold") + Line("once") + Line("on again"), ReadText(file));
  EXPECT_EQ(1, std::distance(fs::directory_iterator(folder.path), {}));
}

TEST_F(LogFileDeathTest, TheDefaultFileIsBesideALibraryThatWasLoadedByARelativePath) {
  const PrivateLibrary library(R"({"time": "virtual", "devices": [
    {"name": "here", "port": "1", "kind": "other", "vid": "0x1111", "pid": "0x0001"},
    {"name": "there", "port": "2", "kind": "other", "vid": "0x2222", "pid": "0x0002"}]})");
  WriteText(library.folder.At("VidPid.ini"), "VID:1111 PID:0001\n");
  WriteText(folder.At("VidPid.ini"), "VID:2222 PID:0002\n");
  const auto run = [&] {
    fs::current_path(library.folder.path);
    const auto leave = [&] { fs::current_path(folder.path); };
    const std::vector<std::string> ids = library.Load("./" + library.name, 0, leave);
    _exit(ids == std::vector<std::string>{"1111:0001"} ? 7 : 1);
  };
  EXPECT_EXIT(run(), ExitedWithCode(7), "^$") << "the id list beside the library counts, too";
  EXPECT_THAT(ReadText(library.folder.At("info.txt")), ::testing::HasSubstr("QZ_ListAllHidDev"));
  EXPECT_FALSE(fs::exists(folder.path / "info.txt"));
}

TEST_F(LogFileTest, TheDefaultFileIsBesideTheLibraryAndEachProcessBeginsItAnew) {
  const PrivateLibrary library(R"({"time": "virtual", "devices": []})");
  library.List(0);
  EXPECT_THAT(ReadText(library.folder.At("info.txt")),
              StartsWith("[2024-03-07, 09:05:02]  QZ_ListAllHidDev, Enter --->\n"));
  library.List(3);
  EXPECT_EQ("[2024-03-07, 09:05:02]  QZ_ListAllHidDev, List Hid Device Fail\n",
            ReadText(library.folder.At("info.txt")));
}

}  // namespace
}  // namespace qzhid::test
