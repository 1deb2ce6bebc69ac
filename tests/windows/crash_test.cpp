// The minidump of a process that dies.
#include <process.h>

#include "windows/loaded_copy.h"

namespace qzhid::test {
namespace {

class MinidumpTest : public ::testing::Test {
 protected:
  /// Takes the steps in the folder; the exit code.
  DWORD Crash(const char* steps) const {
    const fs::path program = fs::absolute(L"crasher.exe"), here = fs::current_path();
    fs::current_path(folder.path);
    const auto code = _spawnl(_P_WAIT, program.string().c_str(), "crasher", steps, nullptr);
    fs::current_path(here);
    return static_cast<DWORD>(code);
  }

  const ScratchFolder folder;
  const fs::path dump = folder.path / L"ConsoleApplication1.dmp", marks = folder.path / L"marks";
};

TEST_F(MinidumpTest, EachCrashReplacesTheDumpAndEndsTheProcessAsBefore) {
  EXPECT_EQ(0u, Crash("before load call no-room record record room { call room"));
  EXPECT_TRUE(fs::is_empty(folder.path));
  const fs::path other = folder.path / L"other";
  WriteText(other, "xxxx");
  fs::create_hard_link(other, dump);
  EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, Crash("load record null"));
  EXPECT_EQ("MDMP", ReadText(dump).substr(0, 4));
  EXPECT_EQ("xxxx", ReadText(other)) << "the file under its other name";
  fs::remove(dump);
  fs::create_directory(dump);
  EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, Crash("load record null"));
  EXPECT_TRUE(fs::is_directory(dump));
}

TEST_F(MinidumpTest, AnOverflowOfAnyThreadThatHasCalledTheLibraryLeavesADump) {
  Crash("before overflow");
  if (!fs::exists(marks)) return;  // the emulated processor calls not even the host's own filter
  for (const char* steps : {"load record overflow", "load record { call overflow"}) {
    fs::remove(dump);
    EXPECT_EQ(EXCEPTION_STACK_OVERFLOW, Crash(steps)) << steps;
    EXPECT_EQ("MDMP", ReadText(dump).substr(0, 4)) << steps;
  }
}

TEST_F(MinidumpTest, FiltersOfTheHostAreCalledAsBeforeAndAfterTheLibraryIsGone) {
  const std::tuple<const char*, std::string, bool> rows[] = {
      {"before load record after null", "l", true},
      {"before load record unload earlier null", "e", false},
      {"before load record after unload null", "le", false},
      {"none load record after unload null", "l", false},
      {"before load record after record unload null", "le", false},
      {"before load record after unload load record null", "", true}};
  for (const auto& [steps, calls, hasDump] : rows) {
    fs::remove(dump);
    fs::remove(marks);
    EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, Crash(steps)) << steps;
    EXPECT_EQ(std::pair(calls, hasDump), std::pair(ReadText(marks), fs::exists(dump))) << steps;
  }
}

}  // namespace
}  // namespace qzhid::test
