// The log file: where it goes and what it says.
#include <regex>
#include <thread>

#include "windows/loaded_copy.h"

namespace qzhid::test {
namespace {

using ::testing::HasSubstr;

class WindowsLogTest : public LoadedCopyTest {
 protected:
  const fs::path log = folder / L"info.txt";
};

TEST_F(WindowsLogTest, AStartingThreadTurnsLoggingOnBesideTheLibrary) {
  const LoadedCopy library(folder);
  library.List();
  EXPECT_FALSE(fs::exists(log)) << "nothing is logged before";
  for (int i = 0; i < 2; ++i) {
    std::thread([] {}).join();
    const std::size_t before = ReadText(log).size();
    library.List();
    EXPECT_LT(before, ReadText(log).size()) << "however it was switched off";
    QZ_CALL(library, QZ_ConfigLog, 0, 3);
  }
  const std::string text = ReadText(log);
  EXPECT_THAT(text, HasSubstr("]  CRequestCMD::QZ_InitProxyDriver, YvProxy lib built"))
      << "from level 0 on";
  EXPECT_FALSE(std::regex_search(text, std::regex("[^\r]\n"))) << "a text file";
}

TEST_F(WindowsLogTest, OnlyAbsolutePathsOfFilesWithBackslashesAreAcceptedAndKeptByStartingThreads) {
  const LoadedCopy library(folder);
  const std::string there = Narrow(L"");
  std::string slashes = Narrow(L"new.txt");
  std::replace(slashes.begin(), slashes.end(), '\\', '/');
  const std::pair<std::string, int> cases[] = {{Narrow(L"copy.dll"), 1},
                                               {Narrow(L"größe.log"), 1},
                                               {there, 0},
                                               {there.substr(0, there.size() - 1), 0},
                                               {Narrow(L"missing\\new.txt"), 0},
                                               {"new.txt", 0},
                                               {slashes, 0},
                                               {"", 0}};
  for (const auto& [path, accepted] : cases) {
    EXPECT_EQ(accepted, QZ_CALL(library, QZ_SetLogPath, path.c_str())) << path;
  }
  EXPECT_EQ(0, QZ_CALL(library, QZ_SetLogPath, nullptr));
  std::thread([] {}).join();
  library.List();
  EXPECT_NE("", ReadText(folder / L"größe.log"));
  EXPECT_FALSE(fs::exists(log));
}

TEST_F(WindowsLogTest, TheHostIsDescribedOnce) {
  HKEY key = nullptr;
  ASSERT_EQ(ERROR_SUCCESS,
            RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", 0,
                          KEY_ALL_ACCESS, &key));
  const BYTE revision[] = {0x67, 0x12, 0, 0};  // 4711
  for (const bool hasRevision : {false, true}) {
    RegDeleteValueA(key, "UBR");
    if (hasRevision) RegSetValueExA(key, "UBR", 0, REG_DWORD, revision, sizeof(revision));
    const LoadedCopy library(folder);
    QZ_CALL(library, QZ_ConfigLog, 1, 0);
    library.List();
    library.List();
    const std::string text = ReadText(log);
    const std::regex host(
        "\\]  CRequestCMD::CRequestCMD, OS Type:[^\r]+ OS Version:10\\.0\\.[0-9]{5}" +
        std::string(hasRevision ? "\\.4711" : "") + " Platform:" QZ_PLATFORM_NAME "\r\n");
    EXPECT_EQ(hasRevision, text.find("Query UBR failed.") == std::string::npos);
    EXPECT_TRUE(std::regex_search(text, host)) << text;
    EXPECT_EQ(text.find("OS Type:"), text.rfind("OS Type:"));
  }
  RegCloseKey(key);
}

}  // namespace
}  // namespace qzhid::test
