// The log file: where it goes and what it says.
#include <regex>
#include <thread>

#include "windows/loaded_copy.h"

namespace qzhid::test {
namespace {

using WindowsLogTest = LoadedCopyTest;

TEST_F(WindowsLogTest, AStartingThreadTurnsLoggingOnBesideTheLibrary) {
  const auto log = folder.path() / L"info.txt";
  const LoadedCopy library(folder);
  library.List();
  EXPECT_FALSE(std::filesystem::exists(log)) << "nothing is logged before";
  for (int i = 0; i < 2; ++i) {
    std::thread([] {}).join();
    const std::size_t before = ReadText(log).size();
    library.List();
    EXPECT_LT(before, ReadText(log).size()) << "however it was switched off";
    QZ_EXPORT(library, QZ_ConfigLog)(0, 3);
  }
  const std::string text = ReadText(log);
  EXPECT_THAT(text, ::testing::HasSubstr("]  CRequestCMD::QZ_InitProxyDriver, YvProxy lib built"))
      << "from level 0 on";
  EXPECT_FALSE(std::regex_search(text, std::regex("[^\r]\n"))) << "a text file";
}

TEST_F(WindowsLogTest, AStartingThreadKeepsTheFileThatTheHostChose) {
  const LoadedCopy library(folder);
  EXPECT_EQ(1, QZ_EXPORT(library, QZ_SetLogPath)(folder.Narrow(L"größe.log").c_str()));
  std::thread([] {}).join();
  library.List();
  EXPECT_NE("", ReadText(folder.path() / L"größe.log"));
  EXPECT_FALSE(std::filesystem::exists(folder.path() / L"info.txt"));
}

TEST_F(WindowsLogTest, OnlyAbsolutePathsOfFilesWithBackslashesAreAccepted) {
  const LoadedCopy library(folder);
  const auto setPath = QZ_EXPORT(library, QZ_SetLogPath);
  const std::string existing = folder.Narrow(L"copy.dll"), there = folder.Narrow(L"");
  std::string slashes = folder.Narrow(L"new.txt");
  for (char& unit : slashes) unit = unit == '\\' ? '/' : unit;
  const std::pair<std::string, int> cases[] = {{folder.Narrow(L"new.txt"), 1},
                                               {existing, 1},
                                               {there, 0},
                                               {there.substr(0, there.size() - 1), 0},
                                               {folder.Narrow(L"missing\\new.txt"), 0},
                                               {"new.txt", 0},
                                               {slashes, 0},
                                               {"", 0}};
  for (const auto& [path, accepted] : cases) EXPECT_EQ(accepted, setPath(path.c_str())) << path;
  EXPECT_EQ(0, setPath(nullptr));
}

TEST_F(WindowsLogTest, TheHostIsDescribedOnce) {
  HKEY key = nullptr;
  ASSERT_EQ(ERROR_SUCCESS,
            RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", 0,
                          KEY_ALL_ACCESS, &key));
  const DWORD revision = 4711;
  const std::string host =
      "\\]  CRequestCMD::CRequestCMD, OS Type:[^\r]+ OS Version:10\\.0\\.[0-9]{5}";
  const std::string platform = " Platform:" QZ_PLATFORM_NAME "\r\n";
  for (const bool hasRevision : {false, true}) {
    if (hasRevision) {
      const auto* const bytes = reinterpret_cast<const BYTE*>(&revision);
      RegSetValueExA(key, "UBR", 0, REG_DWORD, bytes, sizeof(revision));
    } else {
      RegDeleteValueA(key, "UBR");
    }
    const LoadedCopy library(folder);
    QZ_EXPORT(library, QZ_ConfigLog)(1, 0);
    library.List();
    library.List();
    const std::string log = ReadText(folder.path() / L"info.txt");
    const std::string failure = hasRevision ? "" : "CRequestCMD::CRequestCMD, Query UBR failed.";
    EXPECT_THAT(log, ::testing::HasSubstr(failure));
    EXPECT_TRUE(
        std::regex_search(log, std::regex(host + (hasRevision ? "\\.4711" : "") + platform)))
        << log;
    EXPECT_EQ(log.find("OS Type:"), log.rfind("OS Type:"));
  }
  RegCloseKey(key);
}

}  // namespace
}  // namespace qzhid::test
