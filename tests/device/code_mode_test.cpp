// Which code a hub runs, and whether its flash holds the image.
#include "device/device_test.h"

namespace qzhid::test {
namespace {

TEST_F(DeviceTest, TheStatusBlockTellsTheRunningCodeAndTheBanks) {
  const std::string status =
      "0 Status:1 8 f 16 1d\n0 Status:24 2b 32 39 40\n0 Status:47 4e 55 5c 63\n0 Status:";
  const std::tuple<std::uint8_t, int, bool, std::string, std::string> cases[] = {
      {0x02, 1, false, "1 dev is not rom code\n", "2"},
      {0x7D, 0, false, "0 dev is rom code\n", "7d"},
      {0x80, 0, true, "0 dev is rom code\n", "80"}};
  for (const auto& [byte15, isFlash, isDualBank, said, end] : cases) {
    Renew();
    property.answer = Image(64);
    property.answer[15] = byte15;
    usb.SetState(usb.GetStateById(kStateUnknown));
    EXPECT_EQ(isFlash, usb.IsRomCode());
    EXPECT_EQ(isDualBank, usb.IsDualBank());
    EXPECT_EQ(said + status + end + " 71 78 7f 86\n" +
                  (isDualBank ? "0 Flash is dual bank\n" : "1 Flash is not dual bank\n"),
              Said());
    EXPECT_TRUE(usb.JudgeCodeMode(&usb));
    EXPECT_EQ(usb.GetStateById(isFlash == 1 ? kStateFlash : kStateRom), usb.GetState());
    EXPECT_EQ(Strings(3, "C0 09 00 00 00 00 14 00 5000"), property.sent);
  }
}

TEST_F(DeviceTest, AHubThatDoesNotAnswerHasNoCodeMode) {
  const std::string zeros = "0 Status:0 0 0 0 0\n";
  usb.SetState(usb.GetStateById(kStateUnknown));
  Renew(7);
  property.answer = {};
  EXPECT_EQ(-1, usb.IsRomCode());
  EXPECT_FALSE(usb.IsDualBank());
  EXPECT_EQ("1 dev is not connect\n" + zeros + zeros + zeros + zeros, Said());
  EXPECT_FALSE(usb.JudgeCodeMode(&usb));
  EXPECT_EQ("0 IsRomCode return -1,Fail\n", Said("CKmoHubPDDev::JudgeCodeMode"));
  EXPECT_EQ(usb.GetStateById(kStateUnknown), usb.GetState());
}

TEST_F(DeviceTest, ComparingFailsOnlyForAFailedReadOfDifferentContents) {
  for (const std::uint64_t failing : {0u, 1u}) {
    for (const Bytes& flash : {Bytes{1, 2, 3}, Bytes{1, 2, 4}}) {
      Renew(failing);
      property.flash = flash;
      usb.SetFwBuffer({1, 2, 3});
      const bool passes = failing == 0 || flash[2] == 3;
      EXPECT_EQ(passes, usb.CheckFlashWithCmp());
      EXPECT_EQ(passes ? "0 Read Flash Success\n0 check flash with compare return true\n"
                       : "0 Read Flash Success\n1 check flash with compare return false\n",
                Said("CKmoHubPDDev::CheckFlashWithCmp"));
    }
  }
}

TEST_F(DeviceTest, TheHubValidatesItsFlashOnlyWhenItsStatusSaysSo) {
  const std::string validate = "40 D9 01 00 00 00 00 00 50000",
                    read = "C0 D8 00 00 00 00 03 00 5000";
  const std::tuple<bool, std::uint8_t, std::uint64_t, std::string> cases[] = {
      {true, 0x02, 0, validate}, {false, 0xFF, 2, validate}, {true, 0xFD, 0, read},
      {false, 0x00, 2, read},    {true, 0x02, 1, read},      {false, 0x02, 3, read}};
  for (const auto& [passes, byte13, failing, second] : cases) {
    Renew(failing);
    usb.SetFwBuffer({1, 2, 3});
    property.flash = {1, 2, 4};
    property.answer[13] = byte13;
    EXPECT_EQ(passes, usb.CheckFlashWithISP());
    EXPECT_EQ((Strings{"C0 09 00 00 00 00 14 00 5000", second}), property.sent);
  }
}

}  // namespace
}  // namespace qzhid::test
