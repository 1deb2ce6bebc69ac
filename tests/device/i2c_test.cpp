// Transfers to an I2C memory behind the hub, in both forms.
#include "device/device_test.h"

namespace qzhid::test {
namespace {

TEST_F(DeviceTest, AnI2CTransferIsOneRequestWithinItsLimits) {
  Bytes data = Image(0x103), buffer;
  const std::string header = "0x34 0x12 0x00 0x00 0x01 0x00 0xa8 0x04 0x82\n";
  // The call; its request, empty if it is refused; the bytes moved; what a failure logs.
  const std::tuple<std::function<std::int32_t()>, std::string, std::size_t, std::string> cases[] = {
      {[&] { return usb.I2CConfigImpl(0x12, 0x34, 0x02); }, "40 F6 34 12 82 80 00 00", 0,
       "3 Config Data Fail,steup pkt:0x40,0xf6,0x34,0x12,0x82,0x80,0x00,0x00\n"},
      {[&] { return usb.I2CWriteImpl(0xA1B2C3D4, data.data(), 0x103); },
       "40 C6 D4 C3 B2 A1 03 01 00 00 00", 0x103,
       "3 Write Data Fail,ErrorCode:0x0000001f,steup "
       "pkt:0x40,0xc6,0xd4,0xc3,0xb2,0xa1,0x03,0x01\n"},
      {[&] { return usb.I2CReadImpl(0xA1B2C3D4, buffer.data(), 0x103); },
       "C0 D6 D4 C3 B2 A1 03 01 00 00 00", 0x103,
       "3 Read Data Fail,ErrorCode:0x0000001f,steup "
       "pkt:0xc0,0xd6,0xd4,0xc3,0xb2,0xa1,0x03,0x01\n"},
      {[&] { return hid.I2CConfigImpl(0xA8, 4, 2) + hid.I2CWriteImpl(0x1234, data.data(), 1); },
       "40 C6 34 12 00 00 01 00 A8 04 82", 1,
       "3 Write Data Fail,ErrorCode:0x0000001f\n3 steup pkt:0x40 0xc6 " + header},
      {[&] { return hid.I2CReadImpl(0x1234, buffer.data(), 1); },
       "40 D6 34 12 00 00 01 00 A8 04 82", 1,
       "3 Read Data Fail,ErrorCode:0x0000001f\n3 steup pkt:0x40 0xd6 " + header},
      {[&] { return hid.I2CWriteImpl(1, data.data(), 129); }, "", 0,
       "3 Write Data Fail,Data Length is < 1,Value:129\n"},
      {[&] { return hid.I2CReadImpl(1, buffer.data(), 193); }, "", 0,
       "3 Read Data Fail,Data Length Value:193\n"}};
  for (const auto& [run, request, moved, failure] : cases) {
    SCOPED_TRACE(failure);
    for (const std::uint64_t failing : {0u, 1u}) {
      Renew(failing);
      property.answer = Image(0x200);
      buffer.assign(0x104, 0xEE);
      EXPECT_EQ(request.empty() ? -1 : failing != 0 ? 31 : 0, run());
      EXPECT_EQ(request.empty() ? Strings() : Strings{request}, property.sent);
      EXPECT_EQ(request.empty() || failing != 0 ? failure : "", Said());
      buffer.resize(moved);
      EXPECT_EQ(Part(data, 0, moved), property.written.empty() ? buffer : property.written);
    }
  }
}

}  // namespace
}  // namespace qzhid::test
