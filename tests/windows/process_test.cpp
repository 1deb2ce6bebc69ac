// Loading and unloading of the library, and the files beside it.
#include <array>
#include <map>

#include "windows/loaded_copy.h"

namespace qzhid::test {
namespace {

using ProcessTest = LoadedCopyTest;

TEST_F(ProcessTest, LoadingDoesNothingAndUnloadingClosesTheLogAndTheOpenDevice) {
  using enum virtualhub::HandleKind;
  std::error_code code;
  {
    const LoadedCopy library(folder);
    EXPECT_TRUE(machine->recorder().all().empty());
    QZ_CALL(library, QZ_ConfigLog, 1, 0);
    EXPECT_EQ(1u, library.List());
    EXPECT_NE(nullptr, QZ_CALL(library, QZ_OpenHid, machine->HidInstance("hub")));
    EXPECT_EQ((std::array{1, 1}),
              (std::array{machine->openHandles(HidDevice), machine->openHandles(Event)}));
    EXPECT_FALSE(fs::remove(folder / L"info.txt", code)) << "it is open";
    machine->recorder().Clear();
  }
  EXPECT_EQ(std::vector<std::string>{"Create Log"}, machine->recorder().DebugTexts());
  EXPECT_EQ((std::array{0, 0}),
            (std::array{machine->openHandles(HidDevice), machine->openHandles(Event)}));
  EXPECT_TRUE(fs::remove(folder / L"info.txt", code)) << code.message();
}

TEST_F(ProcessTest, TheSystemIsAskedForEachOpenedNodeOnlyWhatItTakes) {
  using enum virtualhub::Service;
  const LoadedCopy library(folder);
  machine->recorder().Start();
  EXPECT_EQ(1u, library.List());
  std::map<virtualhub::Service, int> calls;
  for (const auto& record : machine->recorder().all()) {
    if (record.service) ++calls[*record.service];
  }
  // One walk over the hub and the keyboard, up to the end; a set for each of the two, which is
  // walked as far as the node. The path is asked for with its size first.
  EXPECT_EQ((std::array{3, 6, 2, 4}), (std::array{calls[OpenNodeSet], calls[EnumNode],
                                                  calls[FirstInterface], calls[InterfacePath]}));
}

TEST_F(ProcessTest, TheFilesBesideALibraryAreFoundHoweverLongItsPathIs) {
  machine = &virtualhub::InstallMachine(R"({"devices": [
      {"name": "own", "port": "1"},
      {"name": "listed", "port": "2", "image": {"vid": "0x2222", "pid": "0xABCD"},
       "product_text": "Hub"}]})");
  const fs::path top = fs::temp_directory_path() / std::wstring(90, L'ö'),
                 deep = top / std::wstring(90, L'b') / std::wstring(120, L'c');
  fs::create_directories(deep);
  for (const fs::path& place : {folder, deep}) {
    const LoadedCopy library(place);
    EXPECT_EQ(1u, library.List());
    WriteText(place / L"VidPid.ini", "VID:2222 PID:abcd\n");
    QZ_CALL(library, QZ_ConfigLog, 1, 0);
    EXPECT_EQ(2u, library.List());
    EXPECT_THAT(ReadText(place / L"info.txt"), ::testing::HasSubstr("QZ_ListAllHidDev"));
  }
  // The runtime does not look into folders with such paths, so it removes none that has files.
  for (const wchar_t* file : {L"copy.dll", L"info.txt", L"VidPid.ini"}) fs::remove(deep / file);
  fs::remove(deep);
  fs::remove_all(top);
}

}  // namespace
}  // namespace qzhid::test
