// The property object, the request layer without or with a made-up property object, and the line
// that describes the host.
#include <functional>
#include <tuple>

#include "transport/transport_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;
using virtualhub::HandleKind;

using PropertyTest = LibraryTest;

TEST_F(PropertyTest, OneDeviceIsOpenAtATimeAndIdentificationLeavesNoneOpen) {
  CHidProperty property(std::make_unique<CHidTransfers>());
  const auto open = [&] {
    return world->openHandles(HandleKind::HidDevice) + world->openHandles(HandleKind::Event);
  };
  const std::uint32_t hub = world->HidInstance("hub"), keyboard = world->HidInstance("keyboard");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(0u, property.Yv_OpenDeviceByDevInst(hub));
    EXPECT_EQ(2, open());
  }
  EXPECT_EQ(kRefused, property.Yv_OpenDeviceByDevInst(0));  // has closed the hub before
  EXPECT_EQ(0, open());
  EXPECT_EQ(1u, property.Yv_IsWqHid(hub));
  EXPECT_EQ(0, open());
  EXPECT_EQ(0u, property.Yv_IsWqHid(keyboard));
  constexpr const char* kTag = "CHidProperty::Yv_IsWqHid";
  const std::string first = "DevInst: " + std::to_string(hub) + ", WQ Hid Device\n",
                    second = "DevInst: " + std::to_string(keyboard) + ", Not WQ Hid Device\n";
  EXPECT_THAT(log.Of(kTag), ElementsAre(LogLine{0, kTag, first}, LogLine{3, kTag, second}));
}

TEST_F(PropertyTest, WithoutTransfersEverythingIsRefused) {
  CHidProperty property(nullptr);
  for (int channel = 1; channel <= 2; ++channel) {
    for (const std::uint32_t result :
         {property.Yv_OpenDeviceByDevInst(1), property.Yv_CloseDevice(),
          property.Yv_SendVDCmd(0x40, 2, 0, 0, nullptr, 0, 0), property.CtlPipeNoDataOut({}),
          property.CtlPipeOut({}, nullptr), property.CtlPipeIn({}, nullptr),
          property.Reserved14()}) {
      EXPECT_EQ(kRefused, result);
    }
    EXPECT_EQ(0u, property.Yv_IsWqHid(1));
    EXPECT_EQ(1u, property.EnableChannel2());
  }
}

TEST_F(PropertyTest, RequestsWithoutAPropertyObjectAreRefusedWithOneLine) {
  CRequestCMD& cmd = CRequestCMD::Instance();
  cmd.SetProperty(nullptr);
  std::uint8_t data[kStatusBlockSize] = {};
  const struct {
    const char* tag;
    std::function<std::uint32_t()> send;
  } rows[] = {
      {"CRequestCMD::QZ_OpenDevice", [&] { return cmd.QZ_OpenDevice(1); }},
      {"CRequestCMD::Yv_CloseDevice", [&] { return cmd.Yv_CloseDevice(); }},
      {"CRequestCMD::Yv_VdCmdEnable", [&] { return cmd.Yv_VdCmdEnable(1); }},
      {"CRequestCMD::Yv_Status", [&] { return cmd.Yv_Status(data); }},
      {"CRequestCMD::Yv_WriteFlash2", [&] { return cmd.Yv_WriteFlash2(0, data, 4); }},
      {"CRequestCMD::Yv_WriteFlash2", [&] { return cmd.Yv_WriteFlash2(0, data, 0); }},
      {"CRequestCMD::Yv_ReadFlash2", [&] { return cmd.Yv_ReadFlash2(0, data, 4); }},
      {"CRequestCMD::Yv_EraseFlash2", [&] { return cmd.Yv_EraseFlash2(0); }},
      {"CRequestCMD::Yv_FWReset", [&] { return cmd.Yv_FWReset(0); }},
      {"CRequestCMD::Yv_ResetCode", [&] { return cmd.Yv_ResetCode(); }},
      {"CRequestCMD::Yv_ISPValidation", [&] { return cmd.Yv_ISPValidation(); }},
      {"CRequestCMD::Yv_SetDLSlaveAddr", [&] { return cmd.Yv_SetDLSlaveAddr(0, 0); }},
      {"CRequestCMD::Yv_SendVDCmd", [&] { return cmd.Yv_SendVDCmd(0x40, 2, 0, 0, data, 0, 0); }},
      {"CRequestCMD::Yv_CtlPipeNoDataOut", [&] { return cmd.Yv_CtlPipeNoDataOut({}); }},
      {"CRequestCMD::Yv_CtlPipeOut", [&] { return cmd.Yv_CtlPipeOut({}, data); }},
      {"CRequestCMD::Yv_CtlPipeIn", [&] { return cmd.Yv_CtlPipeIn({}, data); }},
  };
  for (const auto& row : rows) {
    log.Clear();
    EXPECT_EQ(kRefused, row.send()) << row.tag;
    EXPECT_THAT(log.lines, ElementsAre(LogLine{3, row.tag, "Property Object is null!!\n"}));
  }
}

/// Keeps value, index, length and data of the requests, and fails the n-th.
struct ScriptedProperty final : IPropertyEx {
  using Request = std::tuple<std::uint16_t, std::uint16_t, std::uint32_t, const std::uint8_t*>;

  std::uint32_t Init() override { return 1; }
  std::uint32_t UnInit() override { return 1; }
  std::uint32_t Yv_SendVDCmd(std::uint8_t, std::uint8_t, std::uint16_t wValue, std::uint16_t wIndex,
                             std::uint8_t* data, std::uint32_t length, std::uint32_t) override {
    requests.emplace_back(wValue, wIndex, length, data);
    return requests.size() == failing ? 77 : 0;
  }

  std::size_t failing = 0;
  std::vector<Request> requests;
};

TEST_F(PropertyTest, LongFlashWritesAreSplitAndStopAtTheFirstFailure) {
  std::uint8_t image[10000] = {};
  const ScriptedProperty::Request first{0x0000, 0x1234, 4096, image},
      second{0x1000, 0x1234, 4096, image + 4096}, third{0x2000, 0x1234, 1808, image + 8192};
  const struct {
    std::uint32_t address, length;
    std::size_t failing;
    std::vector<ScriptedProperty::Request> requests;
  } rows[] = {
      {0x12340000, 10000, 0, {first, second, third}},
      {0x12340000, 10000, 2, {first, second}},
      {0x12340000, 10000, 3, {first, second, third}},
      {0x0000F000, 8192, 0, {{0xF000, 0, 4096, image}, {0x0000, 1, 4096, image + 4096}}},
      {0x12340000, 4096, 0, {first}},
      {0x12340000, 4097, 0, {first, {0x1000, 0x1234, 1, image + 4096}}},
      {0, 0, 1, {}},
  };
  CRequestCMD& cmd = CRequestCMD::Instance();
  for (const auto& row : rows) {
    ScriptedProperty property;
    property.failing = row.failing;
    cmd.SetProperty(&property);
    EXPECT_EQ(row.failing > 1 ? 77u : 0u, cmd.Yv_WriteFlash2(row.address, image, row.length));
    EXPECT_EQ(row.requests, property.requests);
    cmd.Yv_ReadFlash2(row.address, image, row.length);
    EXPECT_EQ(row.requests.size() + 1, property.requests.size());  // reads are not split
    cmd.SetProperty(nullptr);
  }
}

// The line is logged once a process, so each of these runs in a new one.
TEST_F(PropertyTest, HostIsDescribedInOneLineWithWhatCanBeRead) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  using Architecture = virtualhub::HostArchitecture;
  constexpr auto kX86 = Architecture::X86, kX64 = Architecture::X64;
  const struct {
    virtualhub::HostConfig host;
    std::string lines;
  } rows[] = {
      {{true, "Wide 11", 10, 0, 22631, 2861, kX64},
       "<0 OS Type:Wide 11 OS Version:10.0.22631.2861 Platform:x64\n>"},
      {{true, "Old 7", 6, 1, 7601, 5, kX86},
       "<0 OS Type:Old 7 OS Version:6.1.7601 Platform:x86\n>"},
      {{true, "Old 8", 9, 9, 1, {}, kX86}, "<0 OS Type:Old 8 OS Version:9.9.1 Platform:x86\n>"},
      {{true, {}, 10, 0, 1, 2, Architecture::Arm64},
       "<3 Query Product Name Failed\n0 OS Type: OS Version:10.0.1.2 Platform:ARM64\n>"},
      {{true, "A", 11, 2, 1, {}, Architecture::Unknown},
       "<3 Query UBR failed.\n0 OS Type:A OS Version:11.2.1Unknown Platform\n>"},
      {{false, "A", 10, 0, 1, 2, kX64}, "<3 RegOpenKeyEx failed.\n0  Platform:x64\n>"},
  };
  for (const auto& row : rows) {
    const auto run = [&] {
      virtualhub::Scenario scenario = RecordedScenario();
      scenario.host = row.host;
      Install(scenario);
      CRequestCMD::Instance();
      CRequestCMD::Instance();
      std::string text = "<";
      for (const LogLine& line : log.Of("CRequestCMD::CRequestCMD")) {
        text += std::to_string(line.level) + " " + line.text;
      }
      std::cerr << text << ">";
      std::exit(0);
    };
    EXPECT_EXIT(run(), ExitedWithCode(0), HasSubstr(row.lines));
  }
}

}  // namespace
}  // namespace qzhid::test
