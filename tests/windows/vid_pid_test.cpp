// "VidPid.ini" beside the library, and acceptance by the product text without it.
#include "windows/loaded_copy.h"

namespace qzhid::test {
namespace {

using VidPidFileTest = LoadedCopyTest;

TEST_F(VidPidFileTest, NamesTheDevicesThatAreAccepted) {
  Install(R"({"devices": [
      {"name": "own", "port": "1"},
      {"name": "text", "port": "2", "image": {"vid": "0x1111", "pid": "0x0001"}},
      {"name": "listed", "port": "3", "image": {"vid": "0x2222", "pid": "0xABCD"},
       "product_text": "Hub"}]})");
  const LoadedCopy library(folder);
  EXPECT_EQ(2u, library.List()) << "own vendor and product text";
  std::ofstream(folder.path() / L"VidPid.ini") << "VID:2222 PID:abcd\n";
  EXPECT_EQ(2u, library.List()) << "own vendor and list";
  std::ofstream(folder.path() / L"VidPid.ini") << "VID:3333 PID:abcd\n";
  EXPECT_EQ(1u, library.List());
}

}  // namespace
}  // namespace qzhid::test
