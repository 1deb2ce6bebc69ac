// The minidump of a process that dies.
#include "windows/loaded_copy.h"

namespace qzhid::test {
namespace {

class MinidumpTest : public ::testing::Test {
 protected:
  /// Takes the steps in an empty folder; the exit code.
  DWORD Crash(const std::string& steps) const {
    const std::wstring program = std::filesystem::absolute(L"crasher.exe").wstring();
    std::wstring command = L"crasher " + std::wstring(steps.begin(), steps.end());
    STARTUPINFOW start{};
    start.cb = sizeof(start);
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(program.c_str(), command.data(), nullptr, nullptr, FALSE, 0, nullptr,
                        folder.path().wstring().c_str(), &start, &process)) {
      ADD_FAILURE() << "error " << GetLastError();
      return 0;
    }
    DWORD code = 0;
    WaitForSingleObject(process.hProcess, INFINITE);
    GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
    return code;
  }

  const TempFolder folder{L"crash"};
  const std::filesystem::path dump = folder.path() / L"ConsoleApplication1.dmp";
};

TEST_F(MinidumpTest, EachCrashReplacesTheDumpAndEndsTheProcessAsBefore) {
  EXPECT_EQ(0u, Crash("before load call no-room record record room { call room"));
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
  const auto other = folder.path() / L"other";
  WriteText(other, "xxxx");
  CreateHardLinkW(dump.wstring().c_str(), other.wstring().c_str(), nullptr);
  EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, Crash("load record null"));
  EXPECT_EQ("MDMP", ReadText(dump).substr(0, 4));
  EXPECT_EQ("xxxx", ReadText(other)) << "a file with another name as well";
  std::filesystem::remove(dump);
  std::filesystem::create_directory(dump);
  EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, Crash("load record null"));
  EXPECT_TRUE(std::filesystem::is_directory(dump));
}

TEST_F(MinidumpTest, AnOverflowOfAnyThreadThatHasCalledTheLibraryLeavesADump) {
  Crash("before overflow");
  const bool areFiltersCalledThen = !ReadText(folder.path() / L"marks").empty();
  if (!areFiltersCalledThen) return;  // as on the emulated processor, not even the host's own
  for (const char* steps : {"load record overflow", "load record { call overflow"}) {
    SCOPED_TRACE(steps);
    std::filesystem::remove(dump);
    EXPECT_EQ(EXCEPTION_STACK_OVERFLOW, Crash(steps));
    EXPECT_EQ("MDMP", ReadText(dump).substr(0, 4));
  }
}

TEST_F(MinidumpTest, FiltersOfTheHostAreCalledAsBeforeAndAfterTheLibraryIsGone) {
  const struct {
    const char* steps;
    const char* marks;
    bool hasDump;
  } rows[] = {{"before load record after null", "l", true},
              {"before load record unload earlier null", "e", false},
              {"before load record after unload null", "le", false},
              {"none load record after unload null", "l", false},
              {"before load record after record unload null", "le", false},
              {"before load record after unload load record null", "", true}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.steps);
    std::filesystem::remove(dump);
    std::filesystem::remove(folder.path() / L"marks");
    EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, Crash(row.steps));
    EXPECT_EQ(row.marks, ReadText(folder.path() / L"marks"));
    EXPECT_EQ(row.hasDump, std::filesystem::exists(dump));
  }
}

}  // namespace
}  // namespace qzhid::test
