// What each state allows, and how a device moves from one to the next.
#include "device/states.h"

#include "device/device_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::uint8_t g_status[20];
std::uint16_t g_version;

/// What an operation is to come to: the keys of its requests, its result and the next state.
struct Outcome {
  std::vector<int> keys;
  bool isDone;
  int next;
};

using Keys = std::vector<int>;
Outcome Done(int next, const Keys& keys) { return {keys, true, next}; }
Outcome Fails(const Keys& keys) { return {keys, false, kStateFlash}; }
const Outcome kNotInRom{{}, false, kStateRom}, kRead = Done(kStateFlash, {0x4002, 0xC009});

struct Operation {
  std::string name, refusal;
  std::function<bool(IDev&)> run;
  Outcome inRom, inFlash, failing;  // the last in flash code, when every request fails
};
const Operation kOperations[] = {
    Operation{"Reset2Rom", "reset2rom", &IDev::Reset2Rom, Done(kStateRom, {}),
              Done(kStateWait, {0xC009, 0x4000}), Fails({0xC009, 0x4000})},
    Operation{"Reset2Flash", "reset2flash", &IDev::Reset2Flash, Done(kStateWait, {0x40E9}),
              Done(kStateWait, {0x40E9}), Fails({0x40E9})},
    Operation{"WriteFlash", "write flash", &IDev::WriteFlash, Done(kStateRom, {0x4002, 0x40C8}),
              Done(kStateFlash, {0x4002, 0x40C8}), Fails({0x4002, 0x40C8})},
    Operation{"CheckFlash", "check flash", &IDev::CheckFlash, Done(kStateRom, {0xC0D8}),
              Done(kStateFlash, {0xC009, 0x40D9}), Fails({0xC009, 0xC0D8})},
    Operation{"DevReadVersion", "read version",
              [](IDev& dev) { return dev.DevReadVersion(&g_version); }, kNotInRom, kRead,
              Fails({0x4002})},
    Operation{"DveGetICStatus", "read version",
              [](IDev& dev) { return dev.DveGetICStatus(g_status); }, kNotInRom, kRead,
              Fails({0x4002})},
    Operation{"DevErase", "erase flash", &IDev::DevErase, Done(kStateRom, {0x4002, 0x40E8}),
              Done(kStateFlash, {0x4002, 0x40E8}), Fails({0x4002})}};

class StatesTest : public DeviceTest {
 protected:
  void Enter(int state) { usb.SetState(usb.GetStateById(state)); }

  /// Runs the operation in that state, on a hub whose status block has that byte 15.
  void Expect(const Outcome& expected, const Operation& operation, int state,
              std::uint64_t failing = 0, std::uint8_t byte15 = 0x02) {
    SCOPED_TRACE(operation.name + " in state " + std::to_string(state));
    Renew(failing);
    hub.answer[13] = 0x02;  // the hub validates its flash itself
    hub.answer[15] = byte15;
    hub.flash = {0x5A};
    usb.SetFwBuffer({0xA5});
    Enter(state);
    EXPECT_EQ(expected.isDone, operation.run(usb));
    std::vector<int> keys;
    for (const Bytes& setup : hub.sent) keys.push_back(setup[0] * 256 + setup[1]);
    EXPECT_EQ(expected.keys, keys);
    EXPECT_EQ(usb.GetStateById(expected.next), usb.GetState());
  }
};

TEST_F(StatesTest, StatesWithoutAKnownCodeRefuseEachOperationWithALine) {
  const std::tuple<int, std::string, std::string> states[] = {
      {kStateOffline, "COfflineState", "offline"},
      {kStateUnknown, "CUnknownState", "unknown"},
      {kStateWait, "CWaitState", "wait mode"}};
  for (const auto& [state, tag, name] : states) {
    for (const Operation& operation : kOperations) {
      Expect({{}, false, state}, operation, state);
      EXPECT_THAT(Logged(),
                  ElementsAre(LogLine{1, tag + "::" + operation.name,
                                      name + " not support " + operation.refusal + "\n"}));
    }
  }
}

TEST_F(StatesTest, RomCodeCarriesOutAllButReadsOfTheVersion) {
  for (const Operation& operation : kOperations) {
    Expect(operation.inRom, operation, kStateRom);
    const bool isRefused = operation.refusal == "read version";
    EXPECT_EQ(isRefused ? 1u : 0u,
              Count({0, "CRomMode::" + operation.name, "Current Version is RomCode\n"}));
  }
}

TEST_F(StatesTest, FlashCodeCarriesOutAllAndAFailureKeepsTheState) {
  for (const Operation& operation : kOperations) {
    Expect(operation.inFlash, operation, kStateFlash);
    Expect(operation.failing, operation, kStateFlash, ~std::uint64_t{0});
  }
}

TEST_F(StatesTest, ADualBankHubIsNotResetIntoItsRomCodeUnlessForced) {
  Expect({{0xC009}, true, kStateFlash}, kOperations[0], kStateFlash, 0, 0x82);
  EXPECT_TRUE(usb.ForceReset2Rom());
  EXPECT_EQ(Requests("C0 09 00 00 00 00 14 00", "40 00 00 00 00 00 00 00"), hub.sent)
      << "forcing it does not ask";
}

TEST_F(StatesTest, EventsMoveOnlyTheStatesThatTheyConcern) {
  const struct {
    const char* name;
    bool (CState::*raise)();
    std::array<int, 5> expected;  // by state: the next one, plus 10 for the result true
  } events[] = {{"OnArrive", &CState::OnArrive, {11, 1, 2, 3, 4}},
                {"OnRemove", &CState::OnRemove, {0, 1, 2, 3, 10}},
                {"OnRomCode", &CState::OnRomCode, {0, 12, 2, 3, 4}},
                {"OnFlashCode", &CState::OnFlashCode, {0, 13, 2, 3, 4}},
                {"OnReset", &CState::OnReset, {0, 1, 4, 14, 4}},
                {"IsConnected", &CState::IsConnected, {0, 11, 12, 13, 14}},
                {"IsOffline", &CState::IsOffline, {10, 1, 2, 3, 4}}};
  for (const auto& [name, raise, expected] : events) {
    for (std::size_t state = 0; state < 5; ++state) {
      SCOPED_TRACE(name + std::to_string(state));
      Enter(static_cast<int>(state));
      EXPECT_EQ(expected[state] >= 10, (usb.GetState()->*raise)());
      EXPECT_EQ(usb.GetStateById(expected[state] % 10), usb.GetState());
    }
  }
}

TEST_F(StatesTest, WithoutAStateEveryOperationIsRefusedAndEventsAreIgnored) {
  EXPECT_EQ("OfflineState", usb.GetState()->name) << "a new device";
  usb.SetState(usb.GetStateById(5));
  for (const Operation& operation : kOperations) EXPECT_FALSE(operation.run(usb)) << operation.name;
  EXPECT_FALSE(usb.IsConnected());
  EXPECT_FALSE(usb.IsOffline());
  EXPECT_THAT(hub.sent, IsEmpty());
  EXPECT_TRUE(usb.Arrive(7));
  EXPECT_TRUE(usb.JudgeCodeMode(&usb));
  EXPECT_TRUE(usb.Reset2FlashEx());
  EXPECT_TRUE(usb.Remove());
  EXPECT_EQ(nullptr, usb.GetState());
}

TEST_F(StatesTest, ADeviceIsOnItsNodeFromArrivalToRemovalWhichClosesIt) {
  hub.answer[15] = 0x02;
  EXPECT_TRUE(usb.Arrive(7));
  EXPECT_TRUE(usb.JudgeCodeMode(&usb));
  EXPECT_TRUE(usb.Arrive(8));
  EXPECT_TRUE(usb.IsDevInst(8));
  EXPECT_TRUE(usb.Remove());
  EXPECT_TRUE(usb.IsDevInst(0));
  EXPECT_EQ(1u, hub.closes);
  EXPECT_TRUE(usb.Reset2FlashEx());
  EXPECT_TRUE(usb.Remove());
  EXPECT_EQ(LinesOf("CUSBDev::Arrive",
                    {{0, "current state is UnknownState\n"}, {0, "current state is FlashState\n"}}),
            Logged("CUSBDev::Arrive"));
  EXPECT_EQ(LinesOf("CUSBDev::Remove", {{0, "Old State is FlashState\n"},
                                        {0, "current state is FlashState\n"},
                                        {0, "Old State is WaitState\n"},
                                        {0, "current state is OfflineState\n"}}),
            Logged("CUSBDev::Remove"));
}

TEST_F(StatesTest, AForcedRemovalMakesADeviceOfflineInAnyState) {
  Enter(kStateFlash);
  usb.ForceRemove();
  EXPECT_TRUE(usb.IsOffline());
  EXPECT_EQ(LinesOf("CKmoHubPDDev::ForceRemove", {{0, "Set Dev State OFFLINE\n"}}), Logged());
}

}  // namespace
}  // namespace qzhid::test
