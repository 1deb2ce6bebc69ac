// Loading and unloading of the library.
#include <array>
#include <map>
#include <string>

#include "windows/loaded_copy.h"

namespace qzhid::test {
namespace {

class ProcessTest : public LoadedCopyTest {
 protected:
  std::error_code ignored;
};

TEST_F(ProcessTest, LoadingDoesNothingAndUnloadingClosesTheLog) {
  const auto texts = [&] { return machine->recorder().DebugTexts(); };
  {
    const LoadedCopy library(folder);
    EXPECT_TRUE(machine->recorder().all().empty());
    QZ_EXPORT(library, QZ_ConfigLog)(1, 0);
    library.List();
    EXPECT_FALSE(std::filesystem::remove(folder.path() / L"info.txt", ignored)) << "it is open";
    machine->recorder().Clear();
  }
  EXPECT_EQ(std::vector<std::string>{"Create Log"}, texts());
  EXPECT_TRUE(std::filesystem::remove(folder.path() / L"info.txt", ignored)) << ignored.message();
}

TEST_F(ProcessTest, AnOpenDeviceIsReleasedWithTheLibrary) {
  using enum virtualhub::HandleKind;
  {
    const LoadedCopy library(folder);
    EXPECT_EQ(1u, library.List());
    EXPECT_NE(nullptr, QZ_EXPORT(library, QZ_OpenHid)(machine->HidInstance("hub")));
    EXPECT_EQ(1, machine->openHandles(HidDevice));
    EXPECT_EQ(1, machine->openHandles(Event));
  }
  EXPECT_EQ(0, machine->openHandles(HidDevice));
  EXPECT_EQ(0, machine->openHandles(Event));
}

TEST_F(ProcessTest, TheSystemIsAskedForEachOpenedNodeOnlyWhatItTakes) {
  const LoadedCopy library(folder);
  machine->recorder().Start();
  EXPECT_EQ(1u, library.List());
  using virtualhub::Service;
  std::map<Service, int> calls;
  for (const auto& record : machine->recorder().all()) {
    if (record.service) ++calls[*record.service];
  }
  // One walk over the hub and the keyboard, up to the end; a set for each of the two, which is
  // walked as far as the node. The path is asked for with its size first.
  EXPECT_EQ((std::array{3, 6, 2, 4}),
            (std::array{calls[Service::OpenNodeSet], calls[Service::EnumNode],
                        calls[Service::FirstInterface], calls[Service::InterfacePath]}));
}

}  // namespace
}  // namespace qzhid::test
