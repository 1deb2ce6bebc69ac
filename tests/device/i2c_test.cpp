// Transfers to an I2C memory behind the hub, in both forms.
#include "device/device_test.h"

namespace qzhid::test {
namespace {

TEST_F(DeviceTest, PlainTransfersCarryTheirArgumentsInTheSetupPacket) {
  Bytes data = Image(0x103), buffer(0x103);
  property.answer = Image(0x200);
  EXPECT_EQ(0, usb.I2CConfigImpl(0x12, 0x34, 0x02));
  EXPECT_EQ(0, usb.I2CWriteImpl(0xA1B2C3D4, data.data(), 0x103));
  EXPECT_EQ(0, usb.I2CReadImpl(0xA1B2C3D4, buffer.data(), 0x103));
  EXPECT_EQ((Strings{"40 F6 34 12 82 80 00 00", "40 C6 D4 C3 B2 A1 03 01 00 00 00",
                     "C0 D6 D4 C3 B2 A1 03 01 00 00 00"}),
            property.sent);
  EXPECT_EQ(data, property.written);
  EXPECT_EQ(data, buffer);
  EXPECT_EQ("", Said());
  Renew(7);
  EXPECT_EQ(31, usb.I2CConfigImpl(0x12, 0x34, 0x02));
  EXPECT_EQ(31, usb.I2CWriteImpl(0x04030201, data.data(), 1));
  EXPECT_EQ(31, usb.I2CReadImpl(0x04030201, buffer.data(), 1));
  EXPECT_EQ(-1, usb.I2CReadImpl(0x04030201, buffer.data(), 0));
  EXPECT_EQ(3u, property.sent.size()) << "no request for no bytes";
  EXPECT_EQ("3 Config Data Fail,steup pkt:0x40,0xf6,0x34,0x12,0x82,0x80,0x00,0x00\n",
            Said("CUSBDev::I2CConfigImpl"));
  EXPECT_EQ(
      "3 Write Data Fail,ErrorCode:0x0000001f,steup "
      "pkt:0x40,0xc6,0x01,0x02,0x03,0x04,0x01,0x00\n",
      Said("CUSBDev::I2CWriteImpl"));
  EXPECT_EQ(
      "3 Read Data Fail,ErrorCode:0x0000001f,steup "
      "pkt:0xc0,0xd6,0x01,0x02,0x03,0x04,0x01,0x00\n"
      "3 Read Data Fail,Data Length is < 1,Value:0\n",
      Said("CUSBDev::I2CReadImpl"));
}

TEST_F(DeviceTest, HidTransfersCarryTheSettingsAndAtMostOneReport) {
  Bytes data = Image(256), buffer(256);
  property.answer = Image(256);
  EXPECT_EQ(0, hid.I2CConfigImpl(0xA0, 2, 1));
  EXPECT_TRUE(property.sent.empty());
  EXPECT_EQ(0, hid.I2CWriteImpl(0xA1B2C3D4, data.data(), 128));
  EXPECT_EQ(0, hid.I2CReadImpl(0xA1B2C3D4, buffer.data(), 192));
  EXPECT_EQ(0, hid.I2CConfigImpl(0xA8, 4, 0x82));
  EXPECT_EQ(0, hid.I2CWriteImpl(0x1234, data.data(), 0));
  EXPECT_EQ((Strings{"40 C6 D4 C3 B2 A1 80 00 A0 02 81", "40 D6 D4 C3 B2 A1 C0 00 A0 02 81",
                     "40 C6 34 12 00 00 00 00 A8 04 82"}),
            property.sent);
  EXPECT_EQ(Part(data, 0, 128), property.written);
  EXPECT_EQ(Part(data, 0, 192), Part(buffer, 0, 192));
  EXPECT_EQ("", Said());
  Renew(3);
  EXPECT_EQ(31, hid.I2CWriteImpl(0x1234, data.data(), 1));
  EXPECT_EQ(-1, hid.I2CWriteImpl(0x1234, data.data(), 129));
  EXPECT_EQ(-1, hid.I2CWriteImpl(0x1234, data.data(), 256));
  EXPECT_EQ(31, hid.I2CReadImpl(0x1234, buffer.data(), 1));
  EXPECT_EQ(-1, hid.I2CReadImpl(0x1234, buffer.data(), 0));
  EXPECT_EQ(-1, hid.I2CReadImpl(0x1234, buffer.data(), 193));
  EXPECT_EQ(-1, hid.I2CReadImpl(0x1234, buffer.data(), 256));
  EXPECT_EQ(2u, property.sent.size());
  EXPECT_EQ(
      "3 Write Data Fail,ErrorCode:0x0000001f\n"
      "3 steup pkt:0x40 0xc6 0x34 0x12 0x00 0x00 0x01 0x00 0xa8 0x04 0x82\n"
      "3 Write Data Fail,Data Length is < 1,Value:129\n"
      "3 Write Data Fail,Data Length is < 1,Value:256\n",
      Said("CHidDev::I2CWriteImpl"));
  EXPECT_EQ(
      "3 Read Data Fail,ErrorCode:0x0000001f\n"
      "3 steup pkt:0x40 0xd6 0x34 0x12 0x00 0x00 0x01 0x00 0xa8 0x04 0x82\n"
      "3 Read Data Fail,Data Length Value:0\n3 Read Data Fail,Data Length Value:193\n"
      "3 Read Data Fail,Data Length Value:256\n",
      Said("CHidDev::I2CReadImpl"));
}

TEST_F(OpenTransportTest, AMemoryBehindTheHubIsWrittenAndReadBack) {
  virtualhub::Scenario scenario = RecordedScenario();
  scenario.devices[0].hub->i2cTargets[0xA0] = virtualhub::EepromConfig{.pageSize = 256};
  OpenHub(scenario);
  CHidDev dev;
  Bytes data = Image(128), buffer(192);
  dev.I2CConfigImpl(0xA0, 2, 1);
  EXPECT_EQ(0, dev.I2CWriteImpl(0x1200, data.data(), 128));
  EXPECT_EQ(0, dev.I2CReadImpl(0x1200, buffer.data(), 192));
  data.resize(192, 0xFF);
  EXPECT_EQ(data, buffer);
  EXPECT_EQ(data, Part(world->hub("hub").eeprom(0xA0)->memory(), 0x1200, 192));
  EXPECT_EQ(Channel1({0x40, 0xC6, 0x00, 0x12, 0, 0, 128, 0, 0xA0, 2, 0x81}, Image(128)),
            Outputs()[0]);
}

}  // namespace
}  // namespace qzhid::test
