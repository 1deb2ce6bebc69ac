// What each state allows, and how a device moves from one to the next.
#include "device/states.h"

#include "device/device_test.h"

namespace qzhid::test {
namespace {

std::uint8_t g_status[20];
std::uint16_t g_version;

// Requests sent, result and next state: in ROM code, in flash code, and in flash code when every
// request fails.
struct Operation {
  std::string name, refusal;
  std::function<bool(IDev&)> run;
  const char *rom, *flash, *failing;
};
const Operation kOperations[] = {
    {"Reset2Rom", "reset2rom", &IDev::Reset2Rom,  //
     "true RomState", "C009 4000 true WaitState", "C009 4000 false FlashState"},
    {"Reset2Flash", "reset2flash", &IDev::Reset2Flash,  //
     "40E9 true WaitState", "40E9 true WaitState", "40E9 false FlashState"},
    {"WriteFlash", "write flash", &IDev::WriteFlash,  //
     "4002 40C8 true RomState", "4002 40C8 true FlashState", "4002 40C8 false FlashState"},
    {"CheckFlash", "check flash", &IDev::CheckFlash,  //
     "C0D8 true RomState", "C009 40D9 true FlashState", "C009 C0D8 false FlashState"},
    {"DevReadVersion", "read version", [](IDev& dev) { return dev.DevReadVersion(&g_version); },  //
     "false RomState", "4002 C009 true FlashState", "4002 false FlashState"},
    {"DveGetICStatus", "read version", [](IDev& dev) { return dev.DveGetICStatus(g_status); },  //
     "false RomState", "4002 C009 true FlashState", "4002 false FlashState"},
    {"DevErase", "erase flash", &IDev::DevErase,  //
     "4002 40E8 true RomState", "4002 40E8 true FlashState", "4002 false FlashState"}};

class StatesTest : public DeviceTest {
 protected:
  /// In that state, with a hub whose status block has that byte 15.
  std::string Run(const Operation& operation, int state, std::uint64_t failing = 0,
                  std::uint8_t mode = 0x02) {
    Renew(failing);
    property.answer[13] = 0x02;  // the hub validates its flash itself
    property.answer[15] = mode;
    property.flash = {0x5A};
    usb.SetFwBuffer({0xA5});
    usb.SetState(usb.GetStateById(state));
    const bool result = operation.run(usb);
    return property.keys + (result ? "true " : "false ") + usb.GetState()->name;
  }
};

TEST_F(StatesTest, EachOperationIsCarriedOutOrRefusedAsTheStateSays) {
  const std::tuple<int, std::string, std::string> refusing[] = {{0, "COfflineState", "offline"},
                                                                {1, "CUnknownState", "unknown"},
                                                                {4, "CWaitState", "wait mode"}};
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.name);
    for (const auto& [state, tag, name] : refusing) {
      EXPECT_EQ("false " + usb.GetStateById(state)->name, Run(operation, state));
      EXPECT_EQ((std::vector{LogLine{1, tag + "::" + operation.name,
                                     name + " not support " + operation.refusal + "\n"}}),
                log.Lines());
    }
    EXPECT_EQ(operation.rom, Run(operation, kStateRom));
    EXPECT_EQ(operation.refusal == "read version" ? "0 Current Version is RomCode\n" : "",
              Said("CRomMode::" + operation.name));
    EXPECT_EQ(operation.flash, Run(operation, kStateFlash));
    EXPECT_EQ(operation.failing, Run(operation, kStateFlash, ~std::uint64_t{0}));
  }
}

TEST_F(StatesTest, ADualBankHubIsNotResetIntoItsRomCodeUnlessForced) {
  EXPECT_EQ("C009 true FlashState", Run(kOperations[0], kStateFlash, 0, 0x82));
  EXPECT_TRUE(usb.ForceReset2Rom());
  EXPECT_EQ("C009 4000 ", property.keys) << "forcing it does not ask";
}

TEST_F(StatesTest, EventsMoveOnlyTheStatesTheyConcern) {
  using Row = std::pair<bool (CState::*)(), std::array<int, 5>>;
  const Row kEvents[] = {
      // by state: the next one, plus 10 for the result true
      Row{&CState::OnArrive, {11, 1, 2, 3, 4}},  Row{&CState::OnRemove, {0, 1, 2, 3, 10}},
      Row{&CState::OnRomCode, {0, 12, 2, 3, 4}}, Row{&CState::OnFlashCode, {0, 13, 2, 3, 4}},
      Row{&CState::OnReset, {0, 1, 4, 14, 4}},   Row{&CState::IsConnected, {0, 11, 12, 13, 14}},
      Row{&CState::IsOffline, {10, 1, 2, 3, 4}}};
  for (const auto& [raise, expected] : kEvents) {
    for (std::size_t state = 0; state < 5; ++state) {
      usb.SetState(usb.GetStateById(static_cast<int>(state)));
      EXPECT_EQ(expected[state] >= 10, (usb.GetState()->*raise)()) << state;
      EXPECT_EQ(usb.GetStateById(expected[state] % 10), usb.GetState()) << state;
    }
  }
}

TEST_F(StatesTest, WithoutAStateEverythingIsRefused) {
  EXPECT_EQ("OfflineState", usb.GetState()->name) << "a new device";
  usb.SetState(usb.GetStateById(5));
  for (const Operation& operation : kOperations) EXPECT_FALSE(operation.run(usb)) << operation.name;
  EXPECT_FALSE(usb.IsConnected() || usb.IsOffline() || !property.sent.empty());
  EXPECT_TRUE(usb.Arrive(7) && usb.JudgeCodeMode(&usb) && usb.Reset2FlashEx() && usb.Remove());
}

TEST_F(StatesTest, ADeviceTellsItsStatesAsItIsUpdated) {
  property.answer[15] = 0x02;
  EXPECT_TRUE(usb.Arrive(7) && usb.JudgeCodeMode(&usb) && usb.Arrive(8) && usb.IsDevInst(8));
  EXPECT_TRUE(usb.Remove() && usb.IsDevInst(0) && property.closes == 1);
  EXPECT_TRUE(usb.Reset2FlashEx() && usb.Remove());
  usb.SetState(usb.GetStateById(kStateFlash));
  usb.ForceRemove();
  EXPECT_TRUE(usb.IsOffline());
  EXPECT_EQ(
      "0 Old State is FlashState\n0 current state is FlashState\n"
      "0 Old State is WaitState\n0 current state is OfflineState\n",
      Said("CUSBDev::Remove"));
}

}  // namespace
}  // namespace qzhid::test
