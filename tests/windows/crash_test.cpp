// The minidump of a process that dies.
#include "windows/loaded_copy.h"

namespace qzhid::test {
namespace {

/// Runs the crasher in the folder; its exit code.
DWORD Crash(const std::filesystem::path& folder, std::wstring how) {
  const std::wstring program = std::filesystem::absolute(L"crasher.exe").wstring();
  how = L"crasher " + how;
  STARTUPINFOW start{};
  start.cb = sizeof(start);
  PROCESS_INFORMATION process{};
  if (!CreateProcessW(program.c_str(), how.data(), nullptr, nullptr, FALSE, 0, nullptr,
                      folder.wstring().c_str(), &start, &process)) {
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

TEST(MinidumpTest, EachCrashReplacesTheDumpAndEndsTheProcessAsBefore) {
  const TempFolder folder(L"crash");
  EXPECT_EQ(0u, Crash(folder.path(), L"none")) << "first no filter is returned, then the library's";
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
  const auto dump = folder.path() / L"ConsoleApplication1.dmp";
  std::ofstream(dump) << std::string(1 << 20, 'x');  // longer than the new one
  EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, Crash(folder.path(), L"null"));
  const std::string bytes = ReadBytes(dump);
  EXPECT_EQ("MDMP", bytes.substr(0, 4));
  EXPECT_EQ(std::string::npos, bytes.find("xxxx")) << "nothing is left of the old one";
}

}  // namespace
}  // namespace qzhid::test
