// Firmware updates, also of hubs that leave the bus at a bad moment.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "vm/host.h"

namespace qzhid::vm {
namespace {

using ::testing::HasSubstr;
using ::testing::SizeIs;

std::vector<int> g_Progress;

/// Opens the only hub and updates it.
bool Update(const std::string& image) {
  g_Progress.clear();
  const auto records = List();
  if (records.size() != 1) return false;
  void* const hub = QZ_OpenHid(records[0].dwInst);
  const bool isDone =
      QZ_UpdateDev(hub, image.c_str(), [](std::int32_t percent) { g_Progress.push_back(percent); });
  QZ_CloseDev(hub);
  return isDone;
}

int Version() {
  const auto records = List();
  std::uint16_t version = 0;
  if (records.size() != 1) return -1;
  void* const hub = QZ_OpenHid(records[0].dwInst);
  const bool isRead = QZ_ReadDevVersion(hub, &version) != 0;
  QZ_CloseDev(hub);
  return isRead ? version : -1;
}

TEST(Update, FlashHoldsTheImageAndTheHubIsANewKernelDevice) {
  const std::string image = MakeImage("0210"), state = "/tmp/state-update";
  std::uint32_t before = 0;
  std::filesystem::remove_all(state);
  {
    const Attached attached(HubScenario("", R"(, "state_folder": ")" + state + '"'));
    const std::string numberFile = UsbFolder(attached.PortOf("hub")) + "/devnum";
    const std::string number = ReadFile(numberFile);
    ASSERT_THAT(List(), SizeIs(1));
    before = List()[0].dwInst;
    EXPECT_EQ(0x0102, Version());
    EXPECT_TRUE(Update(image));
    EXPECT_EQ(0x0210, Version());
    EXPECT_EQ(100, g_Progress.back());
    EXPECT_TRUE(std::is_sorted(g_Progress.begin(), g_Progress.end()));
    EXPECT_NE(before, List()[0].dwInst);
    EXPECT_NE(number, ReadFile(numberFile));
    EXPECT_EQ(3u, attached.TimesAttached("hub")) << "firmware, loader, new firmware";
  }
  // The file holds the whole bank: the image is in it in one piece, and the rest is erased.
  const std::string flash = ReadFile(state + "/hub.flash"), written = ReadFile(image);
  const std::size_t begin = flash.find(written);
  ASSERT_NE(std::string::npos, begin);
  constexpr std::size_t kBank = 131072;
  ASSERT_GE(flash.size(), begin + kBank);
  EXPECT_EQ(std::string(kBank - written.size(), '\xFF'),
            flash.substr(begin + written.size(), kBank - written.size()));
}

TEST(Update, OfAHubThatAnotherProcessUses) {
  const std::string image = MakeImage("0210");
  const Attached attached(HubScenario());
  Program update({"update_hub", image});
  // Listing sends the hub nothing, so it harms no update; the hub is away for some of the time.
  std::size_t listings = 0;
  ASSERT_TRUE(Eventually([&] {
    listings += List().size();
    return update.HasWritten("70 %");
  })) << update.Output();
  EXPECT_LT(0u, listings);
  EXPECT_EQ(0, update.Wait()) << update.Output();
  EXPECT_EQ(0x0210, Version());

  // Requests in the middle of one may cost it, but not the hub.
  Program disturbed({"update_hub", image});
  ASSERT_TRUE(Eventually([&] { return disturbed.HasWritten("40 %"); })) << disturbed.Output();
  const int whileWriting = Version();
  const int status = disturbed.Wait();
  EXPECT_TRUE(status == 0 || disturbed.HasWritten("the update failed")) << disturbed.Output();
  EXPECT_TRUE(whileWriting == -1 || whileWriting == 0x0210) << whileWriting;
  EXPECT_TRUE(Eventually([&] { return attached.IsReady("hub"); }));
  const Outcome again = RunProgram({"update_hub", image});
  EXPECT_EQ(0, again.status) << again.output;
  EXPECT_EQ(0x0210, Version());
}

TEST(Update, AHubThatLeavesTheBusCanBeUpdatedAgain) {
  const std::string image = MakeImage("0210");
  const struct {
    const char *moment, *fault;
    bool isDone;
    std::size_t arrivals;  // at the end, the first one included
    int version;           // before the second update; -1 in the loader
  } rows[] = {
      {"in the middle of a write",
       R"({"on": "request", "request": "40/C8", "nth": 200, "action": "power_loss", "return_ms": 300})",
       false, 3, -1},
      {"at the reset",
       R"({"on": "request", "request": "40/00", "action": "unplug", "return_ms": 300})", false, 2,
       0x0102},
      {"during the wait",
       R"({"on": "request", "request": "40/02", "nth": 3, "action": "unplug", "return_ms": 300})",
       true, 4, 0x0210},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.moment);
    // A hub that is ready at once gets the same requests in every run.
    const Attached attached(HubScenario(R"(, "timing": {"ready_ms": 0})",
                                        R"(, "faults": [)" + std::string(row.fault) + "]"));
    EXPECT_EQ(row.isDone, Update(image));
    // The kernel may still show the hub as it was, so its last arrival is waited for.
    EXPECT_TRUE(Eventually([&] {
      return attached.TimesAttached("hub") == row.arrivals && attached.IsReady("hub");
    })) << attached.Output();
    EXPECT_EQ(row.version, Version());
    const Outcome again = RunProgram({"update_hub", image});
    EXPECT_EQ(0, again.status) << again.output;
    EXPECT_THAT(again.output, HasSubstr("-> 2.10\n"));
  }
}

}  // namespace
}  // namespace qzhid::vm
