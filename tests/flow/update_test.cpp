// Jobs on a hub. Whole updates and what a fault at any place leads to are tested through the
// exports.
#include "device/hid_dev.h"
#include "discovery/hid_find.h"
#include "discovery/node_matchers.h"
#include "flow/universal_flow.h"
#include "support/layer_test.h"
#include "virtualhub/hub/image.h"

namespace qzhid::test {
namespace {

using virtualhub::InstanceNumbers;

/// 255 chunks of 128 bytes and 40 bytes more.
const auto kNewImage = virtualhub::BuildImage({.version = 0x0210}, 0x7FA8);

/// One hub alone, which answers as soon as it is back.
class UpdateTest : public LayerTest {
 protected:
  UpdateTest() {
    scenario.devices.pop_back();
    scenario.devices[0].hub->timing.readyMs = 0;
    finder.AddDev(&dev);
    dev.SetTopology(L"PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#USB(1)");
  }

  virtualhub::Scenario scenario = RecordedScenario();
  CHidDev dev{NodeMatchers()};
  CHidFind finder;
  CUniversalFlow flow{finder, dev};
};

TEST_F(UpdateTest, NodeNumbersAnotherProductIdAndAShortAbsenceCostTimeAtMost) {
  // Each of the 255 full chunks reports its share of the 40 % that the write is of the update.
  std::vector<int> progress = {0, 10, 20, 30};
  for (int chunk = 0; chunk < 255; ++chunk) {
    progress.push_back(30 + chunk * 128 * 100 / 0x7FA8 * 4 / 10);
  }
  progress.insert(progress.end(), {70, 90, 100});
  EXPECT_TRUE(flow.InitFwFinder(TempFile(kNewImage).path()));
  scenario.devices[0].hub->rom.pid = 0x0810;
  for (const auto numbers : {InstanceNumbers::ById, InstanceNumbers::ByArrival}) {
    for (const std::uint32_t returnMs : {50u, 700u}) {  // 50 ms: away only between two scans
      SCOPED_TRACE(::testing::Message() << int(numbers) << ' ' << returnMs);
      scenario.instanceNumbers = numbers;
      scenario.devices[0].hub->timing.returnMs = returnMs;
      Install(scenario);
      EXPECT_TRUE(flow.DevUpdate());
      EXPECT_EQ(0x0210, machine->hub("hub").Identity().version);
      EXPECT_EQ(kNoHandles, Handles());
      EXPECT_EQ(progress, log.progress);
      // One disconnect wait for each of the two resets; a missed absence costs 80 scans.
      const auto pauses = Pauses();
      EXPECT_EQ(returnMs == 700 ? 12 : 160, std::count(pauses.begin(), pauses.end(), 128u));
    }
  }
}

TEST_F(UpdateTest, AnImageThatCannotBeLoadedLeavesTheDeviceWithoutOne) {
  EXPECT_TRUE(flow.InitFwFinder(TempFile(kNewImage).path()));
  EXPECT_EQ(kNewImage, dev.GetFwBuffer());
  std::uint16_t version = 0;
  EXPECT_TRUE(flow.DevHidCmd(&version, 0));
  EXPECT_EQ(0x0210, version);
  EXPECT_FALSE(flow.InitFwFinder(UniquePath("missing").c_str()));
  EXPECT_TRUE(dev.GetFwBuffer().empty());
  EXPECT_EQ(1u, Count({1, "CUniversalFlow::InitFwFinder", "fail to load fw file to buf.\n"}));
}

TEST_F(UpdateTest, EraseLeavesAnEmptyHubInItsRomCodeAndResetStartsTheFlash) {
  scenario.devices[0].hub->running = virtualhub::Code::Rom;
  Install(scenario);
  virtualhub::Hub& hub = machine->hub("hub");
  EXPECT_TRUE(flow.ResetDeviceonly());
  EXPECT_EQ(virtualhub::Code::Flash, hub.code());
  EXPECT_TRUE(flow.DevErase());
  EXPECT_EQ(virtualhub::Code::Rom, hub.code());
  const auto contents = hub.bank(0).contents();
  EXPECT_THAT(Bytes(contents.begin(), contents.end()), ::testing::Each(0xFF));
}

}  // namespace
}  // namespace qzhid::test
