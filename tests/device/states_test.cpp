// What each state allows, and how a device moves from one to the next.
#include "device/states.h"

#include "device/device_test.h"

namespace qzhid::test {
namespace {

using namespace std::string_literals;

std::uint8_t g_status[20];
std::uint16_t g_version;

/// An operation with the word for it in refusals; the keys of its requests, its result and the next
/// state, in ROM code, in flash code, and in flash code when every request fails.
const struct Operation {
  std::string name, refusal;
  std::function<bool(IDev&)> run;
  std::string inRom, inFlash, failing;
} kOperations[] = {
    {"Reset2Rom", "reset2rom", &IDev::Reset2Rom, "true RomState", "c009 4000 true WaitState",
     "c009 4000 false FlashState"},
    {"Reset2Flash", "reset2flash", &IDev::Reset2Flash, "40e9 true WaitState", "40e9 true WaitState",
     "40e9 false FlashState"},
    {"WriteFlash", "write flash", &IDev::WriteFlash, "4002 40c8 true RomState",
     "4002 40c8 true FlashState", "4002 40c8 false FlashState"},
    {"CheckFlash", "check flash", &IDev::CheckFlash, "c0d8 true RomState",
     "c009 40d9 true FlashState", "c009 c0d8 false FlashState"},
    {"DevReadVersion", "read version", [](IDev& dev) { return dev.DevReadVersion(&g_version); },
     "false RomState", "4002 c009 true FlashState", "4002 false FlashState"},
    {"DveGetICStatus", "read version", [](IDev& dev) { return dev.DveGetICStatus(g_status); },
     "false RomState", "4002 c009 true FlashState", "4002 false FlashState"},
    {"DevErase", "erase flash", &IDev::DevErase, "4002 40e8 true RomState",
     "4002 40e8 true FlashState", "4002 false FlashState"}};

class StatesTest : public DeviceTest {
 protected:
  void Enter(int state) { usb.SetState(usb.GetStateById(state)); }

  /// Runs the operation in that state, on a hub that validates its flash itself.
  std::string Run(const Operation& operation, int state, std::uint64_t failing = 0) {
    Renew(failing);
    hub.answer[13] = 0x02;
    hub.flash = {0x5A};
    usb.SetFwBuffer({0xA5});
    Enter(state);
    const bool isDone = operation.run(usb);
    std::ostringstream outcome;
    for (const Bytes& setup : hub.sent) outcome << std::hex << setup[0] * 256 + setup[1] << ' ';
    outcome << std::boolalpha << isDone << ' ' << usb.GetState()->name;
    return outcome.str();
  }
};

TEST_F(StatesTest, StatesWithoutAKnownCodeRefuseEachOperationWithALine) {
  for (const auto& [state, name, words] : {std::tuple{kStateOffline, "Offline"s, "offline"s},
                                           {kStateUnknown, "Unknown"s, "unknown"s},
                                           {kStateWait, "Wait"s, "wait mode"s}}) {
    for (const Operation& operation : kOperations) {
      EXPECT_EQ("false " + name + "State", Run(operation, state));
      EXPECT_EQ(LinesOf("C" + name + "State::" + operation.name,
                        {{1, words + " not support " + operation.refusal + "\n"}}),
                Logged());
    }
  }
}

TEST_F(StatesTest, FirmwareCarriesOutEverythingAndTheLoaderEverythingButReads) {
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.name);
    EXPECT_EQ(operation.inRom, Run(operation, kStateRom));
    EXPECT_EQ(operation.refusal == "read version" ? 1u : 0u,
              Count({0, "CRomMode::" + operation.name, "Current Version is RomCode\n"}));
    EXPECT_EQ(operation.inFlash, Run(operation, kStateFlash));
    EXPECT_EQ(operation.failing, Run(operation, kStateFlash, ~std::uint64_t{0}));
  }
}

TEST_F(StatesTest, EventsMoveOnlyTheStatesThatTheyConcern) {
  // In each state: the result, and the first letter of the next state.
  const std::pair<bool (CState::*)(), std::string> events[] = {
      {&CState::OnArrive, "+U -U -R -F -W "},  {&CState::OnRemove, "-O -U -R -F +O "},
      {&CState::OnRomCode, "-O +R -R -F -W "}, {&CState::OnFlashCode, "-O +F -R -F -W "},
      {&CState::OnReset, "-O -U -W +W -W "},   {&CState::IsConnected, "-O +U +R +F +W "},
      {&CState::IsOffline, "+O -U -R -F -W "}};
  EXPECT_EQ("OfflineState", usb.GetState()->name) << "a new device";
  for (const auto& [raise, expected] : events) {
    std::string outcome;
    for (int state = kStateOffline; state <= kStateWait; ++state) {
      Enter(state);
      outcome += (usb.GetState()->*raise)() ? '+' : '-';
      outcome += {usb.GetState()->name[0], ' '};
    }
    EXPECT_EQ(expected, outcome);
  }
}

TEST_F(StatesTest, WithoutAStateEveryOperationIsRefusedAndEventsAreIgnored) {
  usb.SetState(nullptr);
  for (const Operation& operation : kOperations) EXPECT_FALSE(operation.run(usb)) << operation.name;
  EXPECT_FALSE(usb.IsConnected());
  EXPECT_FALSE(usb.IsOffline());
  EXPECT_EQ(Requests(), hub.sent);
  EXPECT_TRUE(usb.Arrive(7));
  EXPECT_TRUE(usb.JudgeCodeMode(&usb));
  EXPECT_TRUE(usb.Reset2FlashEx());
  EXPECT_TRUE(usb.Remove());
}

TEST_F(StatesTest, ADeviceIsOnItsNodeFromArrivalToRemovalWhichClosesItAndLogsItsStates) {
  hub.answer[15] = 0x82;
  EXPECT_TRUE(usb.Arrive(7));
  EXPECT_TRUE(usb.IsDevInst(7));
  Enter(kStateFlash);
  EXPECT_TRUE(usb.Reset2Rom()) << "with two banks, nothing to do";
  EXPECT_TRUE(usb.ForceReset2Rom());
  EXPECT_EQ(Requests(kStatusRequest, "40 00 00 00 00 00 00 00"), hub.sent);
  EXPECT_TRUE(usb.Reset2FlashEx());
  EXPECT_TRUE(usb.Remove());
  EXPECT_TRUE(usb.IsDevInst(0));
  EXPECT_EQ(1u, hub.closes);
  Enter(kStateFlash);
  usb.ForceRemove();
  EXPECT_TRUE(usb.IsOffline());
  EXPECT_EQ((Lines{{0, "CUSBDev::Arrive", "current state is UnknownState\n"},
                   {0, "CUSBDev::IsDualBank", "Flash is dual bank\n"},
                   {0, "CRequestCMD::Yv_FWReset", "YvHub_FWReset(USHORT uOption=0x00)\n "},
                   {0, "CUSBDev::Reset2RomEx", "current state is WaitState\n"},
                   {0, "CUSBDev::Reset2FlashEx", "current state is WaitState\n"},
                   {0, "CUSBDev::Remove", "Old State is WaitState\n"},
                   {0, "CUSBDev::Remove", "current state is OfflineState\n"},
                   {0, "CKmoHubPDDev::ForceRemove", "Set Dev State OFFLINE\n"}}),
            Logged());
}

}  // namespace
}  // namespace qzhid::test
