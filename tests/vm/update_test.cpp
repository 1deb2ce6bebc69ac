// Firmware updates, also of hubs that leave the bus at a bad moment.
#include <gmock/gmock.h>

#include <filesystem>

#include "vm/host.h"

namespace qzhid::vm {
namespace {

using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::Pair;

std::vector<int> g_Progress;

/// Opens the only hub for the task; 0 when there is not one.
template <class Task>
int WithHub(const Task& task) {
  const auto records = List();
  if (records.size() != 1) return 0;
  void* const hub = QZ_OpenHid(records[0].dwInst);
  const int result = task(hub);
  QZ_CloseDev(hub);
  return result;
}

int Update(const std::string& image) {
  g_Progress.clear();
  return WithHub([&](void* hub) {
    return QZ_UpdateDev(hub, image.c_str(), [](std::int32_t at) { g_Progress.push_back(at); });
  });
}

/// 0 when it cannot be read.
int Version() {
  std::uint16_t version = 0;
  return WithHub([&](void* hub) { return QZ_ReadDevVersion(hub, &version); }) != 0 ? version : 0;
}

TEST(Update, FlashHoldsTheImageAndTheHubIsANewKernelDevice) {
  const std::string image = MakeImage("0210"), state = "/tmp/state-update";
  std::filesystem::remove_all(state);
  {
    const Attached attached(HubScenario("", R"(, "state_folder": ")" + state + '"'));
    const std::string numberFile = UsbFolder(attached.PortOf("hub")) + "/devnum";
    const std::string number = ReadFile(numberFile);
    const std::uint32_t before = List().at(0).dwInst;
    EXPECT_EQ(0x0102, Version());
    EXPECT_EQ(1, Update(image));
    EXPECT_EQ(0x0210, Version());
    EXPECT_EQ(100, g_Progress.back());
    EXPECT_TRUE(std::is_sorted(g_Progress.begin(), g_Progress.end()));
    EXPECT_NE(before, List().at(0).dwInst);
    EXPECT_NE(number, ReadFile(numberFile));
    EXPECT_EQ(3u, attached.Ports("hub").size()) << "firmware, loader, new firmware";
  }
  // The file holds the whole bank: the image is in it in one piece, and the rest is erased.
  const std::string flash = ReadFile(state + "/hub.flash"), written = ReadFile(image);
  const std::size_t begin = flash.find(written);
  ASSERT_NE(std::string::npos, begin);
  constexpr std::size_t kBank = 131072;
  EXPECT_EQ(written + std::string(kBank - written.size(), '\xFF'), flash.substr(begin, kBank));
}

TEST(Update, OfAHubThatAnotherProcessUses) {
  const std::string image = MakeImage("0210"), command = "update_hub " + image;
  const Attached attached(HubScenario());
  Program update(command);
  // Listing sends the hub nothing, so it harms no update; the hub is away for some of the time.
  std::size_t listings = 0;
  ASSERT_TRUE(Eventually([&] {
    listings += List().size();
    return update.HasWritten("70 %");
  })) << update.Output();
  EXPECT_LT(0u, listings);
  EXPECT_EQ(0, update.Wait()) << update.Output();
  EXPECT_EQ(0x0210, Version());

  // Requests in the middle of one may make it fail; the next try is not disturbed any more.
  Program disturbed(command);
  ASSERT_TRUE(Eventually([&] { return disturbed.HasWritten("40 %"); })) << disturbed.Output();
  EXPECT_THAT(Version(), AnyOf(0, 0x0210)) << "while it is written";
  EXPECT_EQ(0, disturbed.Wait()) << disturbed.Output();
  EXPECT_TRUE(Eventually([&] { return !attached.HidFile("hub").empty(); }));
  EXPECT_THAT(RunProgram(command), Pair(0, HasSubstr("-> 2.10\n")));
}

TEST(Update, AHubThatLeavesTheBusCanBeUpdatedAgain) {
  const std::string image = MakeImage("0210");
  const struct {
    const char *moment, *fault;
    int isDone;
    std::size_t arrivals;  // at the end, the first one included
    int version;           // before the second update; 0 in the loader
  } rows[] = {
      {"in the middle of a write", R"("request": "40/C8", "nth": 200, "action": "power_loss")", 0,
       3, 0},
      {"at the reset", R"("request": "40/00", "action": "unplug")", 0, 2, 0x0102},
      {"during the wait", R"("request": "40/02", "nth": 3, "action": "unplug")", 1, 4, 0x0210}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.moment);
    // A hub that is ready at once gets the same requests in every run.
    const Attached attached(HubScenario(
        R"(, "timing": {"ready_ms": 0})",
        R"(, "faults": [{"on": "request", "return_ms": 300, )" + std::string(row.fault) + "}]"));
    EXPECT_EQ(row.isDone, Update(image));
    // The kernel may still show the hub as it was, so its last arrival is waited for.
    const auto isBack = [&] {
      return attached.Ports("hub").size() == row.arrivals && !attached.HidFile("hub").empty();
    };
    EXPECT_TRUE(Eventually(isBack)) << attached.Output();
    EXPECT_EQ(row.version, Version());
    EXPECT_THAT(RunProgram("update_hub " + image), Pair(0, HasSubstr("-> 2.10\n")));
  }
}

}  // namespace
}  // namespace qzhid::vm
