// Which code a hub runs, and whether its flash holds the image.
#include "device/device_test.h"

namespace qzhid::test {
namespace {

TEST_F(OpenTransportTest, TheStatusBlockTellsTheRunningCodeAndTheBanks) {
  const auto expect = [&](bool isFlash, bool isDualBank, const std::string& said) {
    SCOPED_TRACE(said);
    virtualhub::Scenario scenario = RecordedScenario();
    virtualhub::HubConfig& hub = *scenario.devices[0].hub;
    hub.running = isFlash ? virtualhub::Code::Flash : virtualhub::Code::Rom;
    hub.dualBank = isDualBank;
    hub.ispSupported = true;
    hub.rom.version = 0xABCD;
    OpenHub(scenario);
    CHidDev dev;
    ASSERT_TRUE(dev.VdCmdEnable(1));
    log.Clear();
    EXPECT_EQ(isFlash ? 1 : 0, dev.IsRomCode());
    EXPECT_EQ(isDualBank, dev.IsDualBank());
    std::string lines;
    for (const LogLine& line : log.lines) lines += std::to_string(line.level) + " " + line.text;
    EXPECT_EQ(said, lines);
    EXPECT_EQ(Channel1({0xC0, 0x09, 0, 0, 0, 0, 20, 0}), Outputs().back());
    dev.Arrive(1);
    EXPECT_TRUE(dev.JudgeCodeMode(&dev));
    EXPECT_EQ(dev.GetStateById(isFlash ? kStateFlash : kStateRom), dev.GetState());
  };
  const std::string kFlash =
      "1 dev is not rom code\n0 Status:2e 7c 0 0 8\n0 Status:18 0 0 0 0\n0 Status:1 2 0 2 0\n";
  const std::string kRom =
      "0 dev is rom code\n0 Status:2e 7c 0 0 8\n0 Status:10 0 0 0 0\n0 Status:ab cd 0 2 0\n";
  expect(true, false, kFlash + "0 Status:2 0 0 0 0\n1 Flash is not dual bank\n");
  expect(true, true, kFlash + "0 Status:82 0 0 0 0\n0 Flash is dual bank\n");
  expect(false, false, kRom + "0 Status:0 0 0 0 0\n1 Flash is not dual bank\n");
  expect(false, true, kRom + "0 Status:80 0 0 0 0\n0 Flash is dual bank\n");
}

TEST_F(DeviceTest, AHubThatDoesNotAnswerHasNoCodeMode) {
  usb.Arrive(1);
  property.answer = {};
  property.failing = 7;
  for (const bool hasProperty : {true, false}) {
    if (!hasProperty) CRequestCMD::Instance().SetProperty(nullptr);
    log.Clear();
    EXPECT_EQ(-1, usb.IsRomCode());
    EXPECT_EQ(
        "1 dev is not connect\n0 Status:0 0 0 0 0\n0 Status:0 0 0 0 0\n"
        "0 Status:0 0 0 0 0\n0 Status:0 0 0 0 0\n",
        Said("CUSBDev::IsRomCode"));
    EXPECT_EQ(hasProperty ? "" : "3 Property Object is null!!\n", Said("CRequestCMD::Yv_Status"));
    EXPECT_FALSE(usb.IsDualBank());
    EXPECT_EQ("", Said("CUSBDev::IsDualBank"));
    EXPECT_FALSE(usb.JudgeCodeMode(&usb));
    EXPECT_EQ("0 IsRomCode return -1,Fail\n", Said("CKmoHubPDDev::JudgeCodeMode"));
    EXPECT_EQ(usb.GetStateById(kStateUnknown), usb.GetState());
  }
}

TEST_F(DeviceTest, ComparingFailsOnlyForAFailedReadOfDifferentContents) {
  const auto expect = [&](bool passes, bool readFails, const Bytes& image, const Bytes& flash) {
    Renew(readFails ? 1 : 0);
    property.flash = flash;
    usb.SetFwBuffer(image);
    EXPECT_EQ(passes, usb.CheckFlashWithCmp());
    EXPECT_EQ(passes ? "0 Read Flash Success\n0 check flash with compare return true\n"
                     : "0 Read Flash Success\n1 check flash with compare return false\n",
              Said("CKmoHubPDDev::CheckFlashWithCmp"));
  };
  expect(true, false, {1, 2, 3}, {1, 2, 3});
  expect(true, false, {1, 2, 3}, {1, 2, 4});
  expect(true, true, {1, 2, 3}, {1, 2, 3});
  expect(false, true, {1, 2, 3}, {1, 2, 4});
  expect(true, true, {}, {});
}

TEST_F(DeviceTest, TheHubValidatesItsFlashOnlyWhenItsStatusSaysSo) {
  const std::string validate = "40 D9 01 00 00 00 00 00 50000",
                    read = "C0 D8 00 00 00 00 03 00 5000";
  const auto expect = [&](bool passes, std::uint8_t byte13, std::uint64_t failing,
                          const std::string& second) {
    Renew(failing);
    usb.SetFwBuffer({1, 2, 3});
    property.flash = {1, 2, 4};
    property.answer[13] = byte13;
    EXPECT_EQ(passes, usb.CheckFlashWithISP());
    EXPECT_EQ((Strings{"C0 09 00 00 00 00 14 00 5000", second}), property.sent);
  };
  expect(true, 0x02, 0, validate);
  expect(false, 0xFF, 2, validate);
  expect(true, 0xFD, 0, read);
  expect(false, 0x00, 2, read);
  expect(true, 0x02, 1, read);
  expect(false, 0x02, 3, read);
}

}  // namespace
}  // namespace qzhid::test
