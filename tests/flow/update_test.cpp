// The jobs on a hub.
#include "device/hid_dev.h"
#include "discovery/hid_find.h"
#include "flow/universal_flow.h"
#include "support/proxy_test.h"
#include "virtualhub/image.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;
using virtualhub::Bytes;
using virtualhub::Code;
using virtualhub::Fault;
using virtualhub::HubConfig;

constexpr const char* kUpdateTag = "CUniversalFlow::DevUpdate";

/// 255 chunks of 128 bytes and 40 bytes more.
const Bytes kOldImage = virtualhub::BuildImage({.version = 0x0102}, 0x7FA8);
const Bytes kNewImage = virtualhub::BuildImage({.version = 0x0210}, 0x7FA8);

/// One hub alone, which is there and answers as soon as it is back.
class UpdateTest : public ProxyTest {
 protected:
  UpdateTest() {
    InstallHub([](HubConfig&) {});
  }
  template <class Change>
  void InstallHub(const Change& change) {
    virtualhub::Scenario scenario = RecordedScenario();
    scenario.devices.pop_back();
    HubConfig& hub = *scenario.devices[0].hub;
    hub.image.image = kOldImage;
    hub.timing.readyMs = 0;
    change(hub);
    Install(scenario);
    dev = std::make_unique<CHidDev>();
    dev->SetTopology(L"PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#USB(1)");
    ClearRecords();
  }

  /// Runs a job with a finder of its own.
  template <class Body>
  bool Run(const Body& body) {
    CHidFind find;
    find.AddDev(dev.get());
    CUniversalFlow flow(find, *dev);
    return body(flow);
  }
  bool Update() {
    const TempFile file(kNewImage);
    return Run([&](CUniversalFlow& flow) {
      EXPECT_TRUE(flow.InitFwFinder(file.path()));
      return flow.DevUpdate();
    });
  }

  virtualhub::Hub& hub() { return world->hub("hub"); }
  /// A bank holds exactly the image.
  void ExpectBank(std::size_t number, const Bytes& image) {
    const auto contents = hub().bank(number).contents();
    EXPECT_TRUE(std::equal(image.begin(), image.end(), contents.begin()));
    EXPECT_TRUE(std::all_of(contents.begin() + static_cast<std::ptrdiff_t>(image.size()),
                            contents.end(), [](std::uint8_t byte) { return byte == 0xFF; }));
  }
  /// The hub runs the new firmware, and the library has let go of it.
  void ExpectUpdated(std::size_t bank) {
    EXPECT_EQ(Code::Flash, hub().code());
    EXPECT_EQ(0x0210, hub().Identity().version);
    EXPECT_EQ(bank, hub().activeBank());
    ExpectBank(bank, kNewImage);
    EXPECT_EQ(0, OpenDevices());
  }

  std::unique_ptr<CHidDev> dev;
};

struct WholeUpdate {
  Code running;
  bool isDualBank, hasIsp;
  std::vector<LogLine> lines;  // between the first match and the last one

  friend void PrintTo(const WholeUpdate& c, std::ostream* out) {
    *out << (c.isDualBank ? "DualBank" : "SingleBank") << (c.running == Code::Rom ? "Rom" : "Flash")
         << (c.hasIsp ? "Isp" : "");
  }
};

const LogLine kMatch{1, "CTopoMatch::Match", "LocationPath Topo Match\n"};
const LogLine kNotRom{1, "CUSBDev::IsRomCode", "dev is not rom code\n"};
const LogLine kNotDualBank{1, "CUSBDev::IsDualBank", "Flash is not dual bank\n"};

class WholeUpdateTest : public UpdateTest, public ::testing::WithParamInterface<WholeUpdate> {};

TEST_P(WholeUpdateTest, TheHubRunsTheImageAndTheHostSawAllOfIt) {
  const WholeUpdate& c = GetParam();
  InstallHub([&](HubConfig& hub) {
    hub.running = c.running;
    hub.dualBank = c.isDualBank;
    hub.ispSupported = c.hasIsp;
  });
  EXPECT_TRUE(Update());
  ExpectUpdated(c.isDualBank ? 1 : 0);
  if (c.isDualBank) ExpectBank(0, kOldImage);

  // Each of the 255 full chunks tells its share of the 40 % that the write is of the update.
  std::vector<int> values = log.progress;
  ASSERT_EQ(4u + 255 + 3, values.size());
  EXPECT_EQ(50, values[4 + 128]);
  values.erase(std::unique(values.begin(), values.end()), values.end());
  std::vector<int> expected = {0, 10, 20};
  for (int percent = 30; percent <= 70; ++percent) expected.push_back(percent);
  expected.insert(expected.end(), {90, 100});
  EXPECT_EQ(expected, values);

  const std::string seconds = std::to_string(world->clock().NowUs() / 1000000);
  std::vector<LogLine> lines = {kMatch};
  lines.insert(lines.end(), c.lines.begin(), c.lines.end());
  lines.push_back(kMatch);
  lines.push_back({1, kUpdateTag, "Update Fw Success!spend time is " + seconds + " Sec\n"});
  EXPECT_EQ(lines, log.From(1));
}

INSTANTIATE_TEST_SUITE_P(
    , WholeUpdateTest,
    ::testing::Values(WholeUpdate{Code::Flash, false, false, {kNotRom, kNotDualBank, kMatch}},
                      WholeUpdate{Code::Rom, false, false, {}},
                      WholeUpdate{Code::Flash, true, false, {kNotRom}},
                      WholeUpdate{Code::Flash, true, true, {kNotRom}}));

TEST_F(UpdateTest, TheHubMayTakeItsTimeToAnswer) {
  InstallHub([](HubConfig& hub) { hub.timing.readyMs = 2000; });
  EXPECT_TRUE(Update());
  ExpectUpdated(0);
}

struct FaultCase {
  const char* name;
  Fault fault;
  std::string failure;  // the flow's own line; empty: there is none
  int reached;          // progress before it falls back to 0
  bool isDualBank = false;

  friend void PrintTo(const FaultCase& c, std::ostream* out) { *out << c.name; }
};

Fault AtReset(std::uint32_t nth, Fault::Action action, const std::string& port = {}) {
  Fault fault;
  fault.on = Fault::On::Reset;
  fault.nth = nth;
  fault.action = action;
  fault.port = port;
  return fault;
}

class FaultTest : public UpdateTest, public ::testing::WithParamInterface<FaultCase> {};

TEST_P(FaultTest, TheUpdateFailsClearlyAndCanBeRepeated) {
  const FaultCase& c = GetParam();
  InstallHub([&](HubConfig& hub) { hub.dualBank = hub.ispSupported = c.isDualBank; });
  world->AddFault(c.fault);
  EXPECT_FALSE(Update());
  std::vector<LogLine> lines, expected;
  for (const LogLine& line : log.Of(kUpdateTag)) {
    if (line.level > 0) lines.push_back(line);
  }
  if (!c.failure.empty()) expected.push_back({3, kUpdateTag, c.failure});
  expected.push_back({1, kUpdateTag, "Update Fw Fail\n"});
  EXPECT_EQ(expected, lines);
  EXPECT_EQ(0, log.progress.back());
  EXPECT_EQ(c.reached, log.progress[log.progress.size() - 2]);
  EXPECT_EQ(0, OpenDevices());
  EXPECT_EQ(0, world->openHandles(virtualhub::HandleKind::Event));

  world->ClearFaults();
  if (c.fault.action == Fault::Action::ReturnAt) world->Unplug("hub");
  world->Plug("hub", "3.1");
  log.Clear();
  EXPECT_TRUE(Update());
  EXPECT_EQ(100, log.progress.back());
  ExpectUpdated(c.isDualBank ? 1 : 0);
}

// The hub is enabled on arrival (1st 0x4002), after the reset (2nd), to erase (3rd) and to write
// (4th), and erased by the erase step (1st 0x40E8) and the write step (2nd).
constexpr auto kPowerLoss = Fault::Action::PowerLoss;
constexpr auto kUnplug = Fault::Action::Unplug;
constexpr auto kLoseWrite = Fault::Action::LoseWrite;
constexpr auto kNeverReturn = Fault::Action::NeverReturn;
const std::string kNotErased = "fail to erase flash\n", kNotWritten = "\nfail to write flash\n";
const std::string kNotChecked = "\nfail to check flash\n";
INSTANTIATE_TEST_SUITE_P(
    , FaultTest,
    ::testing::Values(
        FaultCase{"Silent", RequestFault(0x4002, 1, 0), "", 0},
        FaultCase{"Judge", RequestFault(0xC009), "Judge Code Mode Fail\n", 0},
        FaultCase{"ResetToRom", RequestFault(0x4000), "fail to reset to rom\n", 10},
        FaultCase{"LostInRom", AtReset(1, kNeverReturn), "", 20},
        FaultCase{"ElsewhereInRom", AtReset(1, Fault::Action::ReturnAt, "4"), "", 20},
        FaultCase{"SilentInRom", RequestFault(0x4002, 2, 0), "", 20},
        FaultCase{"EnableErase", RequestFault(0x4002, 3), kNotErased, 20},
        FaultCase{"Erase", RequestFault(0x40E8), kNotErased, 20},
        FaultCase{"EnableWrite", RequestFault(0x4002, 4), kNotWritten, 30},
        FaultCase{"SecondErase", RequestFault(0x40E8, 2), kNotWritten, 30},
        FaultCase{"FirstChunk", RequestFault(0x40C8), kNotWritten, 30},
        FaultCase{"Chunk129", RequestFault(0x40C8, 129), kNotWritten, 50},
        FaultCase{"LastBytes", RequestFault(0x40C8, 256), kNotWritten, 69},
        FaultCase{"PowerLoss", RequestFault(0x40C8, 129, 1, kPowerLoss), kNotWritten, 50},
        FaultCase{"Unplug", RequestFault(0x40C8, 129, 1, kUnplug), kNotWritten, 50},
        FaultCase{"ReadBack", RequestFault(0xC0D8, 200), kNotChecked, 70},
        FaultCase{"ResetToFlash", RequestFault(0x40E9), "fail to reset to flash\n", 90},
        FaultCase{"LostInFlash", AtReset(2, kNeverReturn), "fail to connect dev after reset\n", 90},
        FaultCase{"DualBankErase", RequestFault(0x40E8), kNotWritten, 30, true},
        FaultCase{"DualBankPower", RequestFault(0x40C8, 9, 1, kPowerLoss), kNotWritten, 31, true},
        FaultCase{"Validation", RequestFault(0x40D9), kNotChecked, 70, true},
        FaultCase{"LostWrite", RequestFault(0x40C8, 9, 1, kLoseWrite), kNotChecked, 70, true}));

TEST_F(UpdateTest, AReadBackThatDiffersPassesAndTheHubRefusesToStartTheImage) {
  world->AddFault(RequestFault(0x40C8, 9, 1, kLoseWrite));
  EXPECT_TRUE(Update());
  EXPECT_EQ(Code::Rom, hub().code());
  world->ClearFaults();
  EXPECT_TRUE(Update());
  ExpectUpdated(0);
}

TEST_F(UpdateTest, AHubThatLosesPowerBeforeTheEraseKeepsItsFirmwareAndNeedsANewDeviceObject) {
  world->AddFault(RequestFault(0x40E8, 1, 1, kPowerLoss));
  EXPECT_FALSE(Update());
  EXPECT_EQ(0x0102, hub().Identity().version);
  world->ClearFaults();
  world->Plug("hub");
  EXPECT_FALSE(Update());  // the object still stands for a hub in its ROM code
  ExpectBank(0, kOldImage);
  dev = std::make_unique<CHidDev>();
  dev->SetPosition(2, 1);
  EXPECT_TRUE(Update());
  ExpectUpdated(0);
}

TEST_F(UpdateTest, AnImageThatCannotBeUsedCostsTheHubNothing) {
  struct Case {
    std::optional<std::size_t> size;  // none: no such file
    bool isLoaded;
  };
  for (const Case& c :
       {Case{std::nullopt, false}, Case{0, false}, Case{100, true}, Case{0x7F53, true}}) {
    SCOPED_TRACE(c.size.value_or(99999));
    InstallHub([](HubConfig&) {});
    const TempFile good(kNewImage, "good.bin");
    const TempFile bad(Bytes(kNewImage.begin(),
                             kNewImage.begin() + static_cast<std::ptrdiff_t>(c.size.value_or(0))));
    const std::string path = c.size ? bad.path() : UniquePath("missing.bin");
    EXPECT_FALSE(Run([&](CUniversalFlow& flow) {
      EXPECT_TRUE(flow.InitFwFinder(good.path()));
      ClearRecords();
      EXPECT_EQ(c.isLoaded, flow.InitFwFinder(path.c_str()));
      EXPECT_EQ(c.size.value_or(0), dev->GetFwBuffer().size());
      return flow.DevUpdate();
    }));
    EXPECT_EQ(c.isLoaded ? 0u : 1u,
              log.Count({1, "CUniversalFlow::InitFwFinder", "fail to load fw file to buf.\n"}));
    EXPECT_EQ(1u, log.Count({3, kUpdateTag, "\nfail to write flash\n"}));
    EXPECT_THAT(log.progress, ElementsAre(0, 10, 0));
    EXPECT_THAT(Keys(), ElementsAre(0x4002, 0xC009));
    EXPECT_EQ(Code::Flash, hub().code());
    ExpectBank(0, kOldImage);
  }
}

TEST_F(UpdateTest, EraseLeavesAnEmptyHubInItsRomCodeAndResetStartsTheFlash) {
  const auto reset = [](CUniversalFlow& flow) { return flow.ResetDeviceonly(); };
  InstallHub([](HubConfig& hub) { hub.running = Code::Rom; });
  EXPECT_TRUE(Run(reset));
  EXPECT_EQ(Code::Flash, hub().code());
  EXPECT_TRUE(Run([](CUniversalFlow& flow) { return flow.DevErase(); }));
  EXPECT_EQ(Code::Rom, hub().code());
  ExpectBank(0, {});
  EXPECT_THAT(log.progress, ElementsAre(0, 30, 100, 0));
  EXPECT_TRUE(Run(reset));
  EXPECT_EQ(Code::Rom, hub().code());  // there is nothing else to start
}

}  // namespace
}  // namespace qzhid::test
