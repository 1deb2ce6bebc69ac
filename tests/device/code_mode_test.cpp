// Which code a hub runs, and whether its flash holds the image.
#include "device/device_test.h"
#include "device/states.h"

namespace qzhid::test {
namespace {

TEST_F(DeviceTest, TheStatusBlockSaysWhichCodeRunsAndHowManyBanksThereAre) {
  const std::string rom = "CUSBDev::IsRomCode", bank = "CUSBDev::IsDualBank";
  const LogLine isSingle{1, bank, "Flash is not dual bank\n"};
  const LogLine isDual{0, bank, "Flash is dual bank\n"};
  const struct {
    std::uint8_t byte15;
    LogLine code, banks;
    std::string lastBytes, state;
  } rows[] = {
      {0x02, {1, rom, "dev is not rom code\n"}, isSingle, "Status:2 71 78 7f 86\n", "FlashState"},
      {0x7D, {0, rom, "dev is rom code\n"}, isSingle, "Status:7d 71 78 7f 86\n", "RomState"},
      {0x80, {0, rom, "dev is rom code\n"}, isDual, "Status:80 71 78 7f 86\n", "RomState"}};
  for (const auto& [byte15, code, banks, lastBytes, state] : rows) {
    SCOPED_TRACE(lastBytes);
    Renew();
    hub.answer = Pattern(64);
    hub.answer[15] = byte15;
    usb.SetState(usb.GetStateById(kStateUnknown));
    EXPECT_EQ(banks == isDual, usb.IsDualBank());
    EXPECT_TRUE(usb.JudgeCodeMode(&usb));
    EXPECT_EQ(state, usb.GetState()->name);
    EXPECT_EQ((Lines{banks,
                     code,
                     {0, rom, "Status:1 8 f 16 1d\n"},
                     {0, rom, "Status:24 2b 32 39 40\n"},
                     {0, rom, "Status:47 4e 55 5c 63\n"},
                     {0, rom, lastBytes},
                     {0, "CKmoHubPDDev::JudgeCodeMode", "current state is " + state + "\n"}}),
              Logged());
    EXPECT_EQ(Requests(kStatusRequest, kStatusRequest), hub.sent);
  }
}

TEST_F(DeviceTest, AHubThatDoesNotAnswerHasNoCodeModeAndOneBank) {
  usb.SetState(usb.GetStateById(kStateUnknown));
  hub.answer = Pattern(64);
  EXPECT_EQ(1, usb.IsRomCode());  // leaves a status where the next one is read to
  Renew(3);
  hub.answer = {};
  EXPECT_FALSE(usb.IsDualBank());
  EXPECT_FALSE(usb.JudgeCodeMode(&usb));
  const std::string tag = "CUSBDev::IsRomCode";
  const LogLine zeros{0, tag, "Status:0 0 0 0 0\n"};
  EXPECT_EQ((Lines{{1, tag, "dev is not connect\n"},
                   zeros,
                   zeros,
                   zeros,
                   zeros,
                   {0, "CKmoHubPDDev::JudgeCodeMode", "IsRomCode return -1,Fail\n"}}),
            Logged());
  EXPECT_EQ("UnknownState", usb.GetState()->name);
}

TEST_F(DeviceTest, TheHubValidatesItsFlashIfItsStatusSaysSoElseAFailedReadOfOtherContentsFails) {
  const std::string validate = "40 D9 01 00 00 00 00 00", read = "C0 D8 00 00 00 00 03 00";
  const struct {
    std::uint8_t byte13;
    std::uint64_t failing;  // bit 0: the status; bit 1: the request after it
    std::string second;
    Bytes flash;
    bool passes;
  } rows[] = {{0x02, 0, validate, {1, 2, 4}, true}, {0xFF, 2, validate, {1, 2, 3}, false},
              {0xFD, 0, read, {1, 2, 4}, true},     {0x00, 2, read, {1, 2, 4}, false},
              {0x00, 2, read, {1, 2, 3}, true},     {0x02, 1, read, {1, 2, 3}, true},
              {0x02, 3, read, {1, 2, 4}, false}};
  for (const auto& [byte13, failing, second, flash, passes] : rows) {
    SCOPED_TRACE(::testing::Message() << int{byte13} << ' ' << failing);
    Renew(failing);
    usb.SetFwBuffer({1, 2, 3});
    hub.flash = flash;
    hub.answer[13] = byte13;
    EXPECT_EQ(passes, usb.CheckFlashWithISP());
    EXPECT_EQ(Requests(kStatusRequest, second), hub.sent);
    const std::string tag = "CKmoHubPDDev::CheckFlashWithCmp",
                      begin = "check flash with compare return ";
    const Lines compared = LinesOf(
        tag,
        {{0, "Read Flash Success\n"}, {passes ? 0 : 1, begin + (passes ? "true\n" : "false\n")}});
    EXPECT_EQ(second == read ? compared : Lines{}, Logged());
  }
}

}  // namespace
}  // namespace qzhid::test
