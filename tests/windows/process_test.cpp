// Loading and unloading of the library.
#include "windows/loaded_copy.h"

namespace qzhid::test {
namespace {

class ProcessTest : public LoadedCopyTest {
 protected:
  std::error_code ignored;
};

TEST_F(ProcessTest, LoadingDoesNothingAndUnloadingClosesTheLog) {
  const auto texts = [&] { return world->recorder().DebugTexts(); };
  {
    const LoadedCopy library(folder);
    EXPECT_TRUE(world->recorder().all().empty());
    QZ_EXPORT(library, QZ_ConfigLog)(1, 0);
    library.List();
    EXPECT_FALSE(std::filesystem::remove(folder.path() / L"info.txt", ignored)) << "it is open";
    world->recorder().Clear();
  }
  EXPECT_EQ(std::vector<std::string>{"Create Log"}, texts());
  EXPECT_TRUE(std::filesystem::remove(folder.path() / L"info.txt", ignored)) << ignored.message();
}

TEST_F(ProcessTest, AnOpenDeviceIsReleasedWithTheLibrary) {
  using enum virtualhub::HandleKind;
  {
    const LoadedCopy library(folder);
    EXPECT_EQ(1u, library.List());
    EXPECT_NE(nullptr, QZ_EXPORT(library, QZ_OpenHid)(world->HidInstance("hub")));
    EXPECT_EQ(1, world->openHandles(HidDevice));
  }
  EXPECT_EQ(0, world->openHandles(HidDevice) + world->openHandles(Event));
}

}  // namespace
}  // namespace qzhid::test
