// Requests that a device sends by themselves: version, status, erase, I2C.
#include "device/device_test.h"

namespace qzhid::test {
namespace {

TEST_F(DeviceTest, VersionStatusAndEraseEnableTheHubsCommandsFirst) {
  const std::string enable = "40 02 01 00 7C 2E 00 00";
  std::uint16_t version = 0xBEEF;
  Bytes block(21, 0x55);
  const std::pair<std::string, std::function<bool()>> operations[] = {
      {kStatusRequest, [&] { return usb.ReadVersion(&version); }},
      {kStatusRequest, [&] { return usb.GetICStatus(block.data()); }},
      {"40 E8 00 00 00 00 00 00", [&] { return usb.EraseFlash(); }}};
  for (const std::uint64_t failing : {2u, 1u, 0u}) {
    EXPECT_EQ(0xBEEF, version) << "a failure leaves it as it is";
    for (const auto& [request, run] : operations) {
      Renew(failing);
      hub.answer = Pattern(64);
      EXPECT_EQ(failing == 0, run());
      EXPECT_EQ(failing == 1 ? Requests(enable) : Requests(enable, request), hub.sent);
    }
    EXPECT_EQ(failing == 1 ? Bytes(20, 0) : Pattern(20), Part(block, 0, 20));
  }
  EXPECT_EQ(0x474E, version);
  EXPECT_EQ(0x55, block[20]);
}

TEST_F(DeviceTest, TheDownloadSlaveIsOneRequestThatReturnsTrueForAFailure) {
  EXPECT_FALSE(usb.SetDLSlaveAddr(0x03, 0xA6));
  EXPECT_EQ(Requests("40 08 03 A6 00 00 00 00"), hub.sent);
  EXPECT_EQ(LinesOf("CRequestCMD::Yv_SetDLSlaveAddr",
                    {{0, "YvHub_SetDLSlaveAddr -> mode=3, bySlaveAddr=166\n"}}),
            Logged());
  Renew(1);
  EXPECT_TRUE(usb.SetDLSlaveAddr(0x03, 0xA6));
}

TEST_F(DeviceTest, AnI2CTransferIsOneRequestAndItsFailureIsLogged) {
  Bytes data = Pattern(0x103), room;
  const std::string noWrite = "Write Data Fail,ErrorCode:0x0000001f";
  const std::string noRead = "Read Data Fail,ErrorCode:0x0000001f";
  const std::string packet = " 0x34 0x12 0x00 0x00 0x01 0x00 0xa8 0x04 0x82\n";
  const struct {
    std::string tag, request;
    std::size_t moved;
    std::function<std::int32_t()> transfer;
    std::string failure;
  } rows[] = {{"CUSBDev::I2CConfigImpl", "40 F6 34 12 82 80 00 00", 0,
               [&] { return usb.I2CConfigImpl(0x12, 0x34, 0x02); },
               "Config Data Fail,steup pkt:0x40,0xf6,0x34,0x12,0x82,0x80,0x00,0x00\n"},
              {"CUSBDev::I2CWriteImpl", "40 C6 D4 C3 B2 A1 03 01 00 00 00", 0x103,
               [&] { return usb.I2CWriteImpl(0xA1B2C3D4, data.data(), 0x103); },
               noWrite + ",steup pkt:0x40,0xc6,0xd4,0xc3,0xb2,0xa1,0x03,0x01\n"},
              {"CUSBDev::I2CReadImpl", "C0 D6 D4 C3 B2 A1 03 01 00 00 00", 0x103,
               [&] { return usb.I2CReadImpl(0xA1B2C3D4, room.data(), 0x103); },
               noRead + ",steup pkt:0xc0,0xd6,0xd4,0xc3,0xb2,0xa1,0x03,0x01\n"},
              {"CHidDev::I2CWriteImpl", "40 C6 34 12 00 00 01 00 A8 04 82", 1,
               [&] { return hid.I2CWriteImpl(0x1234, data.data(), 1); },
               noWrite + "\nsteup pkt:0x40 0xc6" + packet},
              {"CHidDev::I2CReadImpl", "40 D6 34 12 00 00 01 00 A8 04 82", 1,
               [&] { return hid.I2CReadImpl(0x1234, room.data(), 1); },
               noRead + "\nsteup pkt:0x40 0xd6" + packet}};
  EXPECT_EQ(0, hid.I2CConfigImpl(0xA8, 4, 2));
  for (const auto& row : rows) {
    for (const std::uint64_t failing : {0u, 1u}) {
      SCOPED_TRACE(row.tag);
      Renew(failing);
      hub.answer = Pattern(0x200);
      room.assign(0x104, 0xEE);
      EXPECT_EQ(failing != 0 ? 31 : 0, row.transfer());
      EXPECT_EQ(Requests(row.request), hub.sent);
      EXPECT_EQ(failing != 0 ? row.failure : "", LoggedText(row.tag));
      EXPECT_EQ(Logged(row.tag), Failures());
      EXPECT_EQ(Part(data, 0, row.moved),
                Part(hub.written.empty() ? room : hub.written, 0, row.moved));
    }
  }
}

TEST_F(DeviceTest, I2CTransfersOutsideTheirLimitsAreRefusedWithALine) {
  Bytes data(192);
  EXPECT_EQ(0, hid.I2CWriteImpl(1, data.data(), 128));
  EXPECT_EQ(0, hid.I2CReadImpl(1, data.data(), 192));
  Renew();
  EXPECT_EQ(-1, hid.I2CWriteImpl(1, data.data(), 129));
  EXPECT_EQ(-1, hid.I2CReadImpl(1, data.data(), 193));
  EXPECT_EQ(-1, hid.I2CReadImpl(1, data.data(), 0));
  EXPECT_EQ(-1, usb.I2CReadImpl(1, data.data(), 0));
  EXPECT_EQ(Requests(), hub.sent);
  const std::string read = "CHidDev::I2CReadImpl";
  EXPECT_EQ((Lines{{3, "CHidDev::I2CWriteImpl", "Write Data Fail,Data Length is < 1,Value:129\n"},
                   {3, read, "Read Data Fail,Data Length Value:193\n"},
                   {3, read, "Read Data Fail,Data Length Value:0\n"},
                   {3, "CUSBDev::I2CReadImpl", "Read Data Fail,Data Length is < 1,Value:0\n"}}),
            Logged());
}

}  // namespace
}  // namespace qzhid::test
