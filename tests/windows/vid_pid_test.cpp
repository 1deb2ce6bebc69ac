// "VidPid.ini" beside the library, and acceptance by the product text without it.
#include "windows/loaded_copy.h"

namespace qzhid::test {
namespace {

using VidPidFileTest = LoadedCopyTest;

TEST_F(VidPidFileTest, TheFileBesideTheLibraryNamesTheDevicesThatAreAccepted) {
  Install(R"({"devices": [
      {"name": "own", "port": "1"},
      {"name": "text", "port": "2", "image": {"vid": "0x1111", "pid": "0x0001"}},
      {"name": "listed", "port": "3", "image": {"vid": "0x2222", "pid": "0xABCD"},
       "product_text": "Hub"}]})");
  const LoadedCopy library(folder);
  EXPECT_EQ(2u, library.List()) << "own vendor and product text";
  WriteText(folder.path() / L"VidPid.ini", "VID:2222 PID:abcd\n");
  EXPECT_EQ(2u, library.List()) << "own vendor and list";
  WriteText(folder.path() / L"VidPid.ini", "VID:3333 PID:abcd\n");
  EXPECT_EQ(1u, library.List());
}

TEST_F(VidPidFileTest, TheFileAndTheLogAreBesideALibraryWhosePathIsLong) {
  Install(R"({"devices": [{"name": "own", "port": "1"},
                          {"name": "text", "port": "2", "image": {"vid": "0x1111"}}]})");
  const auto deep = std::filesystem::temp_directory_path() / std::wstring(90, L'a') /
                    std::wstring(90, L'b') / std::wstring(120, L'c');
  {
    const TempFolder there(deep.c_str());
    WriteText(deep / L"VidPid.ini", "VID:3333 PID:abcd\n");
    const LoadedCopy library(there);
    QZ_EXPORT(library, QZ_ConfigLog)(1, 0);
    EXPECT_EQ(1u, library.List());
    EXPECT_THAT(ReadText(deep / L"info.txt"), ::testing::HasSubstr("QZ_ListAllHidDev"));
  }
  // The runtime does not look into folders with such paths, so it removes none that has files.
  for (const wchar_t* file : {L"copy.dll", L"info.txt", L"VidPid.ini"}) {
    std::filesystem::remove(deep / file);
  }
  std::filesystem::remove(deep);
  std::filesystem::remove_all(deep.parent_path().parent_path());
}

}  // namespace
}  // namespace qzhid::test
