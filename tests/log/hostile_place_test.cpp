// Places that a log file cannot be written to, or not for long: the work goes on.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include "api/api_test.h"
#include "log/msg.h"

namespace qzhid::test {
namespace {

namespace fs = std::filesystem;

/// A file size limit acts as a full disk: what does not fit fails in the same way.
void LimitFileSize(rlim_t bytes) {
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  limit.rlim_cur = bytes;
  setrlimit(RLIMIT_FSIZE, &limit);
}

class HostilePlaceTest : public ApiTest {
 protected:
  /// Updates the hub and reads its version, as a host does.
  bool WorksOnHub() {
    std::uint16_t version = 0;
    Open();
    return QZ_UpdateDev(handle, image.path(), nullptr) == 1 &&
           QZ_ReadDevVersion(handle, &version) == 1 && version == 0x0210;
  }

  const ScratchFolder folder;
  const TempFile image{virtualhub::BuildImage({.version = 0x0210}, 0x7FA8)};
};

// The library chooses its log file once a process, so each row has a process of its own.
TEST_F(HostilePlaceTest, NeitherAPlaceThatCannotBeWrittenNorOneThatFillsUpHindersTheWork) {
  const std::string a(100, 'a'), file = folder.At("log.txt"),
                                 deep = folder.At(a + "/" + a + "/" + a);
  fs::create_directories(deep);
  int reader = -1;
  const auto nothing = [] {};
  const auto makePipe = [&] { mkfifo(file.c_str(), 0600); };
  const auto removeFolder = [&] { fs::remove_all(folder.path); };
  const bool isRoot = geteuid() == 0;
  const struct {
    const char* place;
    std::string path;
    bool isAccepted, hasLast;  ///< the path; whether the last line is in the file
    std::function<void()> whenAccepted = [] {}, whenLogging = [] {};
  } rows[] = {
      {"an ordinary one", file, true, true},
      {"a long path", deep + "/log.txt", true, true},
      {"a name that is too long", folder.At(std::string(300, 'n')), true, false},
      {"a path that is too long", folder.At(std::string(5000, 'p') + "/log.txt"), false, false},
      {"a folder", folder.At("."), false, false},
      {"a folder without permission to write", "/proc/log.txt", isRoot, false},
      {"a folder by then", file, true, false, [&] { fs::create_directory(file); }},
      {"gone by then", file, true, false, removeFolder},
      {"gone later", file, true, false, nothing, removeFolder},
      {"a device that is always full", file, true, false,
       [&] { fs::create_symlink("/dev/full", file); }},
      {"full from some line on", file, true, false, [] { LimitFileSize(1000); }},
      {"a pipe without a reader", file, true, false, makePipe},
      {"a pipe whose reader goes away", file, true, false,
       [&] {
         makePipe();
         reader = open(file.c_str(), O_RDONLY | O_NONBLOCK);
       },
       [&] { close(reader); }},
      {"full for a while", file, true, true, [] { LimitFileSize(1000); },
       [] { LimitFileSize(RLIM_INFINITY); }}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.place);
    fs::remove_all(file);
    fs::create_directories(folder.path);
    const auto run = [&] {
      const bool isAccepted = QZ_SetLogPath(row.path.c_str()) != 0;
      if (isAccepted) {
        row.whenAccepted();
        QZ_ConfigLog(1, 0);
      }
      const bool works = WorksOnHub();
      row.whenLogging();
      const bool worksAgain = WorksOnHub();
      CMsg::Instance().Log(3, "t", "last\n");
      _exit((isAccepted ? 4 : 0) + (works ? 2 : 0) + (worksAgain ? 1 : 0));
    };
    EXPECT_EXIT(run(), ::testing::ExitedWithCode(row.isAccepted ? 7 : 3), "^$");
    std::error_code none;
    const bool isFile = fs::is_regular_file(row.path, none);
    EXPECT_EQ(row.hasLast, isFile && ReadText(row.path).ends_with("]  t, last\n"));
  }
}

}  // namespace
}  // namespace qzhid::test
