// The jobs on a hub. What a fault at any place comes to is in the fault sweep.
#include <functional>

#include "device/hid_dev.h"
#include "discovery/hid_find.h"
#include "discovery/node_matchers.h"
#include "flow/universal_flow.h"
#include "support/layer_test.h"
#include "virtualhub/hub/image.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAreArray;
using virtualhub::Code;
using virtualhub::HubConfig;
using virtualhub::InstanceNumbers;
using enum Fault::Action;

/// 255 chunks of 128 bytes and 40 bytes more.
const auto kOldImage = virtualhub::BuildImage({.version = 0x0102}, 0x7FA8);
const auto kNewImage = virtualhub::BuildImage({.version = 0x0210}, 0x7FA8);

/// One hub alone, which is there and answers as soon as it is back.
class UpdateTest : public LayerTest {
 protected:
  UpdateTest() { InstallHub(); }
  void InstallHub(const std::function<void(HubConfig&)>& change = {},
                  InstanceNumbers numbers = InstanceNumbers::ByArrival) {
    virtualhub::Scenario scenario = RecordedScenario();
    scenario.instanceNumbers = numbers;
    scenario.devices.pop_back();
    HubConfig& config = *scenario.devices[0].hub;
    config.image.image = kOldImage;
    config.timing.readyMs = 0;
    if (change) change(config);
    Install(scenario);
    dev = std::make_unique<CHidDev>(NodeMatchers());
    dev->SetTopology(L"PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#USB(1)");
  }

  /// Runs a job with a finder of its own.
  bool Run(bool (CUniversalFlow::*job)(), const char* image = nullptr) {
    CHidFind find;
    find.AddDev(dev.get());
    CUniversalFlow flow(find, *dev);
    EXPECT_TRUE(image == nullptr || flow.InitFwFinder(image));
    return (flow.*job)();
  }
  bool Update() { return Run(&CUniversalFlow::DevUpdate, TempFile(kNewImage).path()); }

  virtualhub::Hub& hub() { return machine->hub("hub"); }
  /// A bank holds exactly the image.
  void ExpectBank(std::size_t number, const Bytes& image) {
    const auto contents = hub().bank(number).contents();
    Bytes expected = image;
    expected.resize(contents.size(), 0xFF);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), contents.begin()));
  }
  /// The hub runs the new firmware, and the library has released it.
  void ExpectUpdated(std::size_t bank) {
    EXPECT_EQ(Code::Flash, hub().code());
    EXPECT_EQ(0x0210, hub().Identity().version);
    EXPECT_EQ(bank, hub().activeBank());
    ExpectBank(bank, kNewImage);
    EXPECT_EQ(kNoHandles, Handles());
  }

  std::unique_ptr<CHidDev> dev;
};

TEST_F(UpdateTest, ProgressFollowsTheChunksAndTheHubMayTakeItsTimeToAnswer) {
  InstallHub([](HubConfig& config) { config.timing.readyMs = 2000; });
  EXPECT_TRUE(Update());
  ExpectUpdated(0);
  // Each of the 255 full chunks reports its share of the 40 % that the write is of the update.
  std::vector<int> expected = {0, 10, 20, 30};
  for (int chunk = 0; chunk < 255; ++chunk) {
    expected.push_back(30 + chunk * 128 * 100 / 0x7FA8 * 4 / 10);
  }
  expected.insert(expected.end(), {70, 90, 100});
  EXPECT_THAT(log.progress, ElementsAreArray(expected));
}

TEST_F(UpdateTest, NodeNumbersAndAShortAbsenceCostTimeAtMost) {
  for (const auto numbers : {InstanceNumbers::ById, InstanceNumbers::ByArrival}) {
    for (const std::uint16_t romPid :
         {std::uint16_t{0x0818}, std::uint16_t{0x0810}}) {  // of the firmware: 0x0818
      for (const std::uint32_t returnMs : {50u, 700u}) {    // 50 ms: away only between two scans
        SCOPED_TRACE(::testing::Message() << int(numbers) << ' ' << romPid << ' ' << returnMs);
        const auto change = [&](HubConfig& config) {
          config.rom.pid = romPid;
          config.timing.returnMs = returnMs;
        };
        InstallHub(change, numbers);
        EXPECT_TRUE(Update());
        ExpectUpdated(0);
        // One disconnect wait for each of the two resets; a missed absence costs 80 scans.
        const bool isSeenAway = returnMs == 700;
        EXPECT_EQ(isSeenAway ? 0u : 2u,
                  Count({1, "IDevFinder::WaitDevUnconnect", "wait dev unconnect return false.\n"}));
        const auto pauses = Pauses();
        EXPECT_EQ(isSeenAway ? 12 : 160, std::count(pauses.begin(), pauses.end(), 128u));
      }
    }
  }
}

TEST_F(UpdateTest, AHubThatLosesPowerBeforeTheEraseKeepsItsFirmwareAndNeedsANewDeviceObject) {
  machine->AddFault(RequestFault(0x40E8, 1, 1, PowerLoss));
  EXPECT_FALSE(Update());
  machine->ClearFaults();
  machine->Plug("hub");
  EXPECT_FALSE(Update());  // the object still represents a hub in its ROM code
  ExpectBank(0, kOldImage);
  dev = std::make_unique<CHidDev>(NodeMatchers());
  dev->SetPosition(2, 1);
  EXPECT_TRUE(Update());
  ExpectUpdated(0);
}

TEST_F(UpdateTest, AnImageThatCannotBeLoadedLeavesTheDeviceWithoutOne) {
  CHidFind find;
  CUniversalFlow flow(find, *dev);
  EXPECT_TRUE(flow.InitFwFinder(TempFile(kNewImage).path()));
  EXPECT_EQ(kNewImage, dev->GetFwBuffer());
  std::uint16_t version = 0;
  EXPECT_TRUE(flow.DevHidCmd(&version, 0));
  EXPECT_EQ(0x0210, version);
  EXPECT_FALSE(flow.InitFwFinder(UniquePath("missing").c_str()));
  EXPECT_TRUE(dev->GetFwBuffer().empty());
  EXPECT_EQ(1u, Count({1, "CUniversalFlow::InitFwFinder", "fail to load fw file to buf.\n"}));
}

TEST_F(UpdateTest, EraseLeavesAnEmptyHubInItsRomCodeAndResetStartsTheFlash) {
  InstallHub([](HubConfig& config) { config.running = Code::Rom; });
  EXPECT_TRUE(Run(&CUniversalFlow::ResetDeviceonly));
  EXPECT_EQ(Code::Flash, hub().code());
  EXPECT_TRUE(Run(&CUniversalFlow::DevErase));
  EXPECT_EQ(Code::Rom, hub().code());
  ExpectBank(0, {});
  EXPECT_THAT(log.progress, ::testing::ElementsAre(0, 30, 100, 0));
}

}  // namespace
}  // namespace qzhid::test
