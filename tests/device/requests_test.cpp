// Version, status, erase, resets and the download slave.
#include "device/device_test.h"

namespace qzhid::test {
namespace {

TEST_F(DeviceTest, VersionStatusAndEraseEnableTheHubsCommandsFirst) {
  const std::string kStatus = "C0 09 00 00 00 00 14 00 5000";
  for (const std::uint64_t failing : {0u, 1u, 2u}) {
    SCOPED_TRACE(failing);
    const auto run = [&](const std::string& second, const std::function<bool()>& operation) {
      Renew(failing);
      property.answer = Image(64);
      EXPECT_EQ(failing == 0, operation());
      Strings expected{"40 02 01 00 7C 2E 00 00 5000", second};
      if (failing == 1) expected.pop_back();
      EXPECT_EQ(expected, property.sent);
    };
    std::uint16_t version = 0xBEEF;
    run(kStatus, [&] { return usb.ReadVersion(&version); });
    EXPECT_EQ(failing == 0 ? 0x474E : 0xBEEF, version);
    Bytes status(21, 0x55);
    run(kStatus, [&] { return usb.GetICStatus(status.data()); });
    EXPECT_EQ(failing == 1 ? Bytes(20) : Image(20), Part(status, 0, 20));
    EXPECT_EQ(0x55, status[20]);
    run("40 E8 00 00 00 00 00 00 5000", [&] { return usb.EraseFlash(); });
  }
}

TEST_F(DeviceTest, ResetsAndTheDownloadSlaveAreSingleRequests) {
  EXPECT_TRUE(usb.Reset2RomEx());
  EXPECT_TRUE(usb.Reset2FlashEx());
  EXPECT_FALSE(usb.SetDLSlaveAddr(0x03, 0xA6)) << "false stands for success";
  EXPECT_EQ((Strings{"40 00 00 00 00 00 00 00 5000", "40 E9 01 01 00 00 00 00 5000",
                     "40 08 03 A6 00 00 00 00 5000"}),
            property.sent);
  EXPECT_EQ("0 YvHub_FWReset(USHORT uOption=0x00)\n ", Said("CRequestCMD::Yv_FWReset"));
  EXPECT_EQ("0 YvHub_SetDLSlaveAddr -> mode=3, bySlaveAddr=166\n",
            Said("CRequestCMD::Yv_SetDLSlaveAddr"));
  Renew(1);
  EXPECT_TRUE(usb.SetDLSlaveAddr(0x03, 0xA6));
}

}  // namespace
}  // namespace qzhid::test
