// Version, status, erase, resets and the download slave.
#include "device/device_test.h"

namespace qzhid::test {
namespace {

TEST_F(DeviceTest, VersionStatusAndEraseEnableTheHubsCommandsFirst) {
  const std::string status = "C0 09 00 00 00 00 14 00 5000";
  std::uint16_t version = 0xBEEF;
  Bytes block(21, 0x55);
  const std::pair<std::string, std::function<bool()>> operations[] = {
      {status, [&] { return usb.ReadVersion(&version); }},
      {status, [&] { return usb.GetICStatus(block.data()); }},
      {"40 E8 00 00 00 00 00 00 5000", [&] { return usb.EraseFlash(); }}};
  for (const std::uint64_t failing : {1u, 2u, 0u}) {
    EXPECT_EQ(0xBEEF, version) << "a failure leaves it as it is";
    for (const auto& [request, run] : operations) {
      Renew(failing);
      property.answer = Image(64);
      EXPECT_EQ(failing == 0, run());
      Strings expected{"40 02 01 00 7C 2E 00 00 5000", request};
      if (failing == 1) expected.pop_back();
      EXPECT_EQ(expected, property.sent);
    }
  }
  EXPECT_EQ(0x474E, version);
  EXPECT_EQ(HexText(Image(20)) + " 55", HexText(block));
}

TEST_F(DeviceTest, ResetsAndTheDownloadSlaveAreSingleRequests) {
  EXPECT_TRUE(usb.Reset2RomEx());
  EXPECT_TRUE(usb.Reset2FlashEx());
  EXPECT_FALSE(usb.SetDLSlaveAddr(0x03, 0xA6)) << "false stands for success";
  EXPECT_EQ((Strings{"40 00 00 00 00 00 00 00 5000", "40 E9 01 01 00 00 00 00 5000",
                     "40 08 03 A6 00 00 00 00 5000"}),
            property.sent);
  Renew(1);
  EXPECT_TRUE(usb.SetDLSlaveAddr(0x03, 0xA6));
}

}  // namespace
}  // namespace qzhid::test
