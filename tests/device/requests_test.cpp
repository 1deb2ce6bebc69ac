// Requests that a device sends by themselves: version, status, erase, resets, I2C.
#include "device/device_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(DeviceTest, VersionStatusAndEraseEnableTheHubsCommandsFirst) {
  const std::string enable = "40 02 01 00 7C 2E 00 00", status = "C0 09 00 00 00 00 14 00";
  std::uint16_t version = 0xBEEF;
  Bytes block(21, 0x55);
  const std::pair<std::string, std::function<bool()>> operations[] = {
      {status, [&] { return usb.ReadVersion(&version); }},
      {status, [&] { return usb.GetICStatus(block.data()); }},
      {"40 E8 00 00 00 00 00 00", [&] { return usb.EraseFlash(); }}};
  for (const std::uint64_t failing : {1u, 2u, 0u}) {
    EXPECT_EQ(0xBEEF, version) << "a failure leaves it as it is";
    for (const auto& [request, run] : operations) {
      Renew(failing);
      hub.answer = Pattern(64);
      EXPECT_EQ(failing == 0, run());
      EXPECT_EQ(failing == 1 ? Requests(enable) : Requests(enable, request), hub.sent);
    }
  }
  EXPECT_EQ(0x474E, version);
  EXPECT_EQ(Pattern(20), Part(block, 0, 20));
  EXPECT_EQ(0x55, block[20]);
}

TEST_F(DeviceTest, AStatusThatCannotBeReadIsAllZeros) {
  Bytes block(21, 0x55);
  Renew(1);
  EXPECT_FALSE(usb.GetICStatus(block.data()));
  EXPECT_EQ(Bytes(20, 0), Part(block, 0, 20));
}

TEST_F(DeviceTest, AResetIsOneRequestAndMovesTheState) {
  for (const std::uint64_t failing : {0u, 1u}) {
    for (const bool isToRom : {true, false}) {
      Renew(failing);
      usb.SetState(usb.GetStateById(kStateFlash));
      EXPECT_EQ(failing == 0, isToRom ? usb.Reset2RomEx() : usb.Reset2FlashEx());
      EXPECT_THAT(hub.sent, ElementsAre(Hex(isToRom ? "40 00 00 00 00 00 00 00"  //
                                                    : "40 E9 01 01 00 00 00 00")));
      EXPECT_EQ(usb.GetStateById(failing == 0 ? kStateWait : kStateFlash), usb.GetState());
      EXPECT_EQ(failing == 0 ? 1u : 0u,
                Count({0, isToRom ? "CUSBDev::Reset2RomEx" : "CUSBDev::Reset2FlashEx",
                       "current state is WaitState\n"}));
    }
  }
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

class I2CTest : public DeviceTest {
 protected:
  /// The transfer is that request and moves so many bytes; when it fails, it logs those lines.
  void Expect(const std::function<std::int32_t()>& transfer, const char* request, std::size_t moved,
              const std::vector<LogLine>& failure) {
    SCOPED_TRACE(request);
    for (const std::uint64_t failing : {0u, 1u}) {
      Renew(failing);
      hub.answer = Pattern(0x200);
      room.assign(0x104, 0xEE);
      EXPECT_EQ(failing != 0 ? 31 : 0, transfer());
      EXPECT_EQ(Requests(request), hub.sent);
      EXPECT_EQ(failing != 0 ? failure : LinesOf("", {}), Logged());
      EXPECT_EQ(Part(data, 0, moved), Part(hub.written.empty() ? room : hub.written, 0, moved));
    }
  }

  Bytes data = Pattern(0x103), room;
};

TEST_F(I2CTest, ATransferIsOneRequestAndItsFailureIsLogged) {
  const std::string noWrite = "Write Data Fail,ErrorCode:0x0000001f";
  const std::string noRead = "Read Data Fail,ErrorCode:0x0000001f";
  const std::string packet = " 0x34 0x12 0x00 0x00 0x01 0x00 0xa8 0x04 0x82\n";
  Expect([&] { return usb.I2CConfigImpl(0x12, 0x34, 0x02); }, "40 F6 34 12 82 80 00 00", 0,
         LinesOf("CUSBDev::I2CConfigImpl",
                 {{3, "Config Data Fail,steup pkt:0x40,0xf6,0x34,0x12,0x82,0x80,0x00,0x00\n"}}));
  Expect([&] { return usb.I2CWriteImpl(0xA1B2C3D4, data.data(), 0x103); },
         "40 C6 D4 C3 B2 A1 03 01 00 00 00", 0x103,
         LinesOf("CUSBDev::I2CWriteImpl",
                 {{3, noWrite + ",steup pkt:0x40,0xc6,0xd4,0xc3,0xb2,0xa1,0x03,0x01\n"}}));
  Expect([&] { return usb.I2CReadImpl(0xA1B2C3D4, room.data(), 0x103); },
         "C0 D6 D4 C3 B2 A1 03 01 00 00 00", 0x103,
         LinesOf("CUSBDev::I2CReadImpl",
                 {{3, noRead + ",steup pkt:0xc0,0xd6,0xd4,0xc3,0xb2,0xa1,0x03,0x01\n"}}));
  EXPECT_EQ(0, hid.I2CConfigImpl(0xA8, 4, 2));
  Expect(
      [&] { return hid.I2CWriteImpl(0x1234, data.data(), 1); }, "40 C6 34 12 00 00 01 00 A8 04 82",
      1,
      LinesOf("CHidDev::I2CWriteImpl", {{3, noWrite + "\n"}, {3, "steup pkt:0x40 0xc6" + packet}}));
  Expect(
      [&] { return hid.I2CReadImpl(0x1234, room.data(), 1); }, "40 D6 34 12 00 00 01 00 A8 04 82",
      1,
      LinesOf("CHidDev::I2CReadImpl", {{3, noRead + "\n"}, {3, "steup pkt:0x40 0xd6" + packet}}));
}

TEST_F(I2CTest, TransfersOutsideTheirLimitsAreRefusedWithALine) {
  EXPECT_EQ(0, hid.I2CWriteImpl(1, data.data(), 128));
  EXPECT_EQ(0, hid.I2CReadImpl(1, data.data(), 192));
  Renew();
  EXPECT_EQ(-1, hid.I2CWriteImpl(1, data.data(), 129));
  EXPECT_EQ(-1, hid.I2CReadImpl(1, data.data(), 193));
  EXPECT_EQ(-1, hid.I2CReadImpl(1, data.data(), 0));
  EXPECT_EQ(-1, usb.I2CReadImpl(1, data.data(), 0));
  EXPECT_THAT(hub.sent, IsEmpty());
  const std::string read = "CHidDev::I2CReadImpl";
  EXPECT_THAT(
      Logged(),
      ElementsAre(
          LogLine{3, "CHidDev::I2CWriteImpl", "Write Data Fail,Data Length is < 1,Value:129\n"},
          LogLine{3, read, "Read Data Fail,Data Length Value:193\n"},
          LogLine{3, read, "Read Data Fail,Data Length Value:0\n"},
          LogLine{3, "CUSBDev::I2CReadImpl", "Read Data Fail,Data Length is < 1,Value:0\n"}));
}

}  // namespace
}  // namespace qzhid::test
