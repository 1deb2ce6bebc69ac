// Which code a hub runs, and whether its flash holds the image.
#include "device/device_test.h"
#include "device/states.h"

namespace qzhid::test {
namespace {

const std::string kStatus = "C0 09 00 00 00 00 14 00";
const std::string kJudgeTag = "CKmoHubPDDev::JudgeCodeMode";

TEST_F(DeviceTest, TheStatusBlockSaysWhichCodeRunsAndHowManyBanksThereAre) {
  const struct {
    std::uint8_t byte15;
    bool isFlash, isDualBank;
    std::pair<int, std::string> line;
    std::string lastBytes;
  } rows[] = {{0x02, true, false, {1, "dev is not rom code\n"}, "Status:2 71 78 7f 86\n"},
              {0x7D, false, false, {0, "dev is rom code\n"}, "Status:7d 71 78 7f 86\n"},
              {0x80, false, true, {0, "dev is rom code\n"}, "Status:80 71 78 7f 86\n"}};
  for (const auto& row : rows) {
    Renew();
    hub.answer = Pattern(64);
    hub.answer[15] = row.byte15;
    EXPECT_EQ(row.isFlash ? 1 : 0, usb.IsRomCode());
    EXPECT_EQ(row.isDualBank, usb.IsDualBank());
    EXPECT_EQ(LinesOf("CUSBDev::IsRomCode", {row.line,
                                             {0, "Status:1 8 f 16 1d\n"},
                                             {0, "Status:24 2b 32 39 40\n"},
                                             {0, "Status:47 4e 55 5c 63\n"},
                                             {0, row.lastBytes}}),
              Logged("CUSBDev::IsRomCode"));
    EXPECT_EQ(
        LinesOf("CUSBDev::IsDualBank", {row.isDualBank ? std::pair{0, "Flash is dual bank\n"}
                                                       : std::pair{1, "Flash is not dual bank\n"}}),
        Logged("CUSBDev::IsDualBank"));
    usb.SetState(usb.GetStateById(kStateUnknown));
    EXPECT_TRUE(usb.JudgeCodeMode(&usb));
    EXPECT_EQ(usb.GetStateById(row.isFlash ? kStateFlash : kStateRom), usb.GetState());
    EXPECT_EQ(LinesOf(kJudgeTag, {{0, row.isFlash ? "current state is FlashState\n"
                                                  : "current state is RomState\n"}}),
              Logged(kJudgeTag));
    EXPECT_EQ(Requests(kStatus, kStatus, kStatus), hub.sent);
  }
}

TEST_F(DeviceTest, AHubThatDoesNotAnswerHasNoCodeModeAndOneBank) {
  usb.SetState(usb.GetStateById(kStateUnknown));
  hub.answer = Pattern(64);
  EXPECT_EQ(1, usb.IsRomCode());  // leaves a status where the next one is read to
  Renew(7);
  hub.answer = {};
  EXPECT_EQ(-1, usb.IsRomCode());
  const std::pair<int, std::string> zeros{0, "Status:0 0 0 0 0\n"};
  EXPECT_EQ(
      LinesOf("CUSBDev::IsRomCode", {{1, "dev is not connect\n"}, zeros, zeros, zeros, zeros}),
      Logged());
  EXPECT_FALSE(usb.IsDualBank());
  EXPECT_FALSE(usb.JudgeCodeMode(&usb));
  EXPECT_EQ(LinesOf(kJudgeTag, {{0, "IsRomCode return -1,Fail\n"}}), Logged(kJudgeTag));
  EXPECT_EQ(usb.GetStateById(kStateUnknown), usb.GetState());
}

TEST_F(DeviceTest, ComparingFailsOnlyForAFailedReadOfDifferentContents) {
  const std::string tag = "CKmoHubPDDev::CheckFlashWithCmp";
  for (const std::uint64_t failing : {0u, 1u}) {
    for (const Bytes& flash : {Bytes{1, 2, 3}, Bytes{1, 2, 4}}) {
      Renew(failing);
      hub.flash = flash;
      usb.SetFwBuffer({1, 2, 3});
      const bool passes = failing == 0 || flash[2] == 3;
      EXPECT_EQ(passes, usb.CheckFlashWithCmp());
      EXPECT_EQ(
          LinesOf(tag, {{0, "Read Flash Success\n"},
                        {passes ? 0 : 1, passes ? "check flash with compare return true\n"
                                                : "check flash with compare return false\n"}}),
          Logged(tag));
    }
  }
}

TEST_F(DeviceTest, TheHubValidatesItsFlashOnlyWhenItsStatusSaysSo) {
  const std::string validate = "40 D9 01 00 00 00 00 00", read = "C0 D8 00 00 00 00 03 00";
  const std::tuple<bool, std::uint8_t, std::uint64_t, std::string> cases[] = {
      {true, 0x02, 0, validate}, {false, 0xFF, 2, validate}, {true, 0xFD, 0, read},
      {false, 0x00, 2, read},    {true, 0x02, 1, read},      {false, 0x02, 3, read}};
  for (const auto& [passes, byte13, failing, second] : cases) {
    Renew(failing);
    usb.SetFwBuffer({1, 2, 3});
    hub.flash = {1, 2, 4};
    hub.answer[13] = byte13;
    EXPECT_EQ(passes, usb.CheckFlashWithISP());
    EXPECT_EQ(Requests(kStatus, second), hub.sent);
    EXPECT_EQ(second == validate ? 50000u : 5000u, hub.timeouts.back()) << "validation is slow";
  }
}

}  // namespace
}  // namespace qzhid::test
