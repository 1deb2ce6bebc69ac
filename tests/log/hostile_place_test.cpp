// Places that a log file cannot be written to, or not for long: the work goes on.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "api/api_test.h"
#include "support/private_library.h"

namespace qzhid::test {
namespace {

namespace fs = std::filesystem;

/// A file size limit stands for a disk that is full: what does not fit fails in the same way.
void LimitFileSize(rlim_t bytes) {
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  limit.rlim_cur = bytes;
  setrlimit(RLIMIT_FSIZE, &limit);
}

void MakePipe(const std::string& path) { mkfifo(path.c_str(), 0600); }

class HostilePlaceTest : public ApiTest {
 protected:
  HostilePlaceTest() {
    fs::remove_all(folder);
    fs::create_directories(folder);
  }
  ~HostilePlaceTest() override { fs::remove_all(folder); }

  std::string At(const std::string& name) const { return (folder / name).string(); }

  bool WorksOnHub() {
    List();
    handle = QZ_OpenHid(machine->HidInstance("hub"));
    std::uint16_t version = 0;
    return QZ_UpdateDev(handle, image.path(), nullptr) == 1 &&
           QZ_ReadDevVersion(handle, &version) == 1 && version == 0x0210;
  }

  const fs::path folder = UniquePath("folder");
  const TempFile image{virtualhub::BuildImage({.version = 0x0210}, 0x7FA8)};
};

// The library chooses its log file once a process, so each row has a process of its own.
TEST_F(HostilePlaceTest, NeitherAPlaceThatCannotBeWrittenNorOneThatFillsUpHindersTheWork) {
  const std::string file = At("log.txt"),
                    deep = At(std::string(100, 'a') + "/" + std::string(100, 'b') + "/" +
                              std::string(100, 'c'));
  fs::create_directories(deep);
  const auto nothing = [] {};
  int reader = -1;
  const struct {
    const char* place;
    std::string path;
    bool isAccepted, hasLast;  ///< the path; whether the last line is in the file
    std::function<void()> whenAccepted, whenLogging;
  } rows[] = {{"an ordinary one", file, true, true, nothing, nothing},
              {"a long path", deep + "/log.txt", true, true, nothing, nothing},
              {"a name that is too long", At(std::string(300, 'n')), true, false, nothing, nothing},
              {"a path that is too long", At(std::string(5000, 'p') + "/log.txt"), false, false,
               nothing, nothing},
              {"a folder", At("."), false, false, nothing, nothing},
              {"a folder that may not be written", "/proc/log.txt", geteuid() == 0, false, nothing,
               nothing},
              {"a folder by then", file, true, false, [&] { fs::create_directory(file); }, nothing},
              {"gone by then", file, true, false, [&] { fs::remove_all(folder); }, nothing},
              {"gone later", file, true, false, nothing, [&] { fs::remove_all(folder); }},
              {"a device that is always full", file, true, false,
               [&] { fs::create_symlink("/dev/full", file); }, nothing},
              {"full from some line on", file, true, false, [] { LimitFileSize(1000); }, nothing},
              {"a pipe without a reader", file, true, false, [&] { MakePipe(file); }, nothing},
              {"a pipe whose reader goes away", file, true, false,
               [&] {
                 MakePipe(file);
                 reader = open(file.c_str(), O_RDONLY | O_NONBLOCK);
               },
               [&] { close(reader); }},
              {"full for a while", file, true, true, [] { LimitFileSize(1000); },
               [] { LimitFileSize(RLIM_INFINITY); }}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.place);
    fs::remove_all(file);
    fs::create_directories(folder);
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
