// Hubs that QEMU redirects to the guest: at an ordinary USB controller, without any driver for
// them.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "vm/host.h"

namespace qzhid::vm {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Pair;

constexpr auto kPatience = std::chrono::seconds(60);  // for emulated processors

/// Carries out a line outside of the virtual machine.
void Control(const std::string& line) { std::ofstream("/dev/ttyS2") << line << std::endl; }

bool AreListed(std::size_t hubs) {
  return Eventually([=] { return List().size() == hubs; }, kPatience);
}

/// As small as an image can be.
std::string MakeSmallImage(const std::string& version) {
  std::string file = "/tmp/small-" + version + ".bin";
  RunProgram("qzhub image --size 32680 --version " + version + " --out " + file);
  return file;
}

/// With that command, of the hub or the hubs that the options name.
std::string Write(const std::string& command, const std::string& image) {
  return "qzhid " + command + " --yes --retries 0 --wait 1 --progress lines --image " + image;
}

TEST(Redirect, TwoHubsAreListedWithoutAVirtualController) {
  EXPECT_FALSE(std::filesystem::exists("/sys/module/vhci_hcd"));
  ASSERT_TRUE(AreListed(2));
  EXPECT_THAT(RunProgram("qzhid list"),
              Pair(0, AllOf(HasSubstr("1-1  "), HasSubstr("1-2  "), HasSubstr("1.02"))));
  EXPECT_THAT(RunProgram("qzhid info --hub 1-2"), Pair(0, HasSubstr("1.02")));
}

TEST(Redirect, TwoHubsAreWrittenAtOnceAlsoWhenOneIsUnpluggedInMidWrite) {
  ASSERT_TRUE(AreListed(2));
  Program update(Write("update --all --jobs 2", MakeSmallImage("0210")));
  ASSERT_TRUE(Eventually([&] { return update.HasWritten("1-2: writing"); }, kPatience))
      << update.Output();
  Control("unplug right");
  EXPECT_EQ(6, update.Wait()) << update.Output();
  EXPECT_TRUE(AreListed(1));
  EXPECT_THAT(RunProgram("qzhid info"), Pair(0, HasSubstr("2.10")));

  Control("plug right");
  ASSERT_TRUE(AreListed(2));
  EXPECT_THAT(RunProgram("qzhid list"), Pair(0, HasSubstr("loader")));
  const std::string image = MakeSmallImage("0220");
  Program left(Write("update --hub 1-1", image)), right(Write("recover --hub 1-2", image));
  EXPECT_EQ(0, left.Wait()) << left.Output();
  EXPECT_EQ(0, right.Wait()) << right.Output();
  ASSERT_TRUE(AreListed(2));
  for (const char* hub : {"1-1", "1-2"}) {
    EXPECT_THAT(RunProgram("qzhid info --hub " + std::string(hub)), Pair(0, HasSubstr("2.20")));
  }
}

}  // namespace
}  // namespace qzhid::vm
