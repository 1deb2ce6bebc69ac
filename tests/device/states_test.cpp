// What each state allows, and how a device moves from one to the next.
#include "device/states.h"

#include "device/device_test.h"

namespace qzhid::test {
namespace {

std::uint8_t g_status[20];
std::uint16_t g_version;
bool ReadVersion(IDev& dev) { return dev.DevReadVersion(&g_version); }
bool ReadStatus(IDev& dev) { return dev.DveGetICStatus(g_status); }

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
    {"DevReadVersion", "read version", &ReadVersion,  //
     "false RomState", "4002 C009 true FlashState", "4002 false FlashState"},
    {"DveGetICStatus", "read version", &ReadStatus,  //
     "false RomState", "4002 C009 true FlashState", "4002 false FlashState"},
    {"DevErase", "erase flash", &IDev::DevErase,  //
     "4002 40E8 true RomState", "4002 40E8 true FlashState", "4002 false FlashState"}};

class StatesTest : public DeviceTest {
 protected:
  StatesTest() { Answer(0x02); }
  void Answer(std::uint8_t mode, std::uint64_t failing = 0) {
    Renew(failing);
    property.answer[13] = 0x02;  // the hub validates its flash itself
    property.answer[15] = mode;
    property.flash = {0x5A};
    usb.SetFwBuffer({0xA5});
  }

  std::string Run(const Operation& operation, int state) {
    usb.SetState(usb.GetStateById(state));
    const bool result = operation.run(usb);
    return property.keys + (result ? "true " : "false ") + usb.GetState()->name;
  }
};

TEST_F(StatesTest, EachOperationIsCarriedOutOrRefusedAsTheStateSays) {
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.name);
    const auto refuses = [&](int state, const char* className, const std::string& line) {
      Answer(0x02);
      EXPECT_EQ("false " + usb.GetStateById(state)->name, Run(operation, state));
      EXPECT_EQ(line, Said(std::string(className) + "::" + operation.name));
      EXPECT_EQ(1u, log.lines.size());
    };
    refuses(0, "COfflineState", "1 offline not support " + operation.refusal + "\n");
    refuses(1, "CUnknownState", "1 unknown not support " + operation.refusal + "\n");
    refuses(4, "CWaitState", "1 wait mode not support " + operation.refusal + "\n");
    Answer(0x02);
    EXPECT_EQ(operation.rom, Run(operation, kStateRom));
    EXPECT_EQ(operation.refusal == "read version" ? "0 Current Version is RomCode\n" : "",
              Said("CRomMode::" + operation.name));
    Answer(0x02);
    EXPECT_EQ(operation.flash, Run(operation, kStateFlash));
    Answer(0x02, ~std::uint64_t{0});
    EXPECT_EQ(operation.failing, Run(operation, kStateFlash));
  }
}

TEST_F(StatesTest, ADualBankHubIsNotResetIntoItsRomCodeUnlessForced) {
  Answer(0x82);
  EXPECT_EQ("C009 true FlashState", Run(kOperations[0], kStateFlash));
  EXPECT_TRUE(usb.ForceReset2Rom());
  EXPECT_EQ("C009 4000 ", property.keys) << "forcing it does not ask";
  EXPECT_EQ("0 current state is WaitState\n", Said("CUSBDev::Reset2RomEx"));
  EXPECT_TRUE(usb.Reset2FlashEx());
  EXPECT_EQ("0 current state is WaitState\n", Said("CUSBDev::Reset2FlashEx"));
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
      const bool result = (usb.GetState()->*raise)();
      EXPECT_EQ(usb.GetStateById(expected[state] % 10), usb.GetState()) << state;
      EXPECT_EQ(expected[state] >= 10, result) << state;
      EXPECT_EQ(expected[state] % 10 == 0, usb.IsOffline());
      EXPECT_EQ(expected[state] % 10 != 0, usb.IsConnected());
    }
  }
  EXPECT_TRUE(log.lines.empty() && property.sent.empty());
}

TEST_F(StatesTest, UnknownStatesAreNotFoundAndWithoutOneEverythingIsRefused) {
  EXPECT_EQ("OfflineState", usb.GetState()->name) << "a new device";
  for (int unknown : {-1, 5}) EXPECT_EQ(nullptr, usb.GetStateById(unknown));
  usb.SetState(nullptr);
  for (const Operation& operation : kOperations) EXPECT_FALSE(operation.run(usb)) << operation.name;
  EXPECT_FALSE(usb.IsConnected() || usb.IsOffline());
  EXPECT_TRUE(property.sent.empty());
  EXPECT_TRUE(usb.Arrive(7) && usb.JudgeCodeMode(&usb) && usb.Reset2FlashEx() && usb.Remove());
  EXPECT_EQ(nullptr, usb.GetState());
}

TEST_F(StatesTest, ADeviceGoesThroughItsStatesAsItIsUpdated) {
  EXPECT_TRUE(usb.Arrive(7) && usb.JudgeCodeMode(&usb) && usb.Arrive(8) && usb.IsDevInst(8));
  EXPECT_EQ("0 current state is UnknownState\n0 current state is FlashState\n",
            Said("CUSBDev::Arrive"));
  property.answer[15] = 0x00;
  EXPECT_TRUE(usb.JudgeCodeMode(&usb));
  EXPECT_EQ("0 current state is FlashState\n0 current state is FlashState\n",
            Said("CKmoHubPDDev::JudgeCodeMode"));
  EXPECT_TRUE(usb.Remove() && usb.IsDevInst(0));
  EXPECT_EQ(1u, property.closes);
  EXPECT_TRUE(usb.Reset2Rom());
  CRequestCMD::Instance().SetProperty(nullptr);
  EXPECT_TRUE(usb.Remove());
  EXPECT_EQ(
      "0 Old State is FlashState\n0 current state is FlashState\n"
      "0 Old State is WaitState\n0 current state is OfflineState\n",
      Said("CUSBDev::Remove"));
  EXPECT_EQ("3 Property Object is null!!\n", Said("CRequestCMD::Yv_CloseDevice"));
  for (int state = 0; state < 5; ++state) {
    usb.SetState(usb.GetStateById(state));
    log.Clear();
    usb.ForceRemove();
    EXPECT_TRUE(usb.IsOffline());
    EXPECT_EQ("0 Set Dev State OFFLINE\n", Said("CKmoHubPDDev::ForceRemove"));
  }
}

}  // namespace
}  // namespace qzhid::test
