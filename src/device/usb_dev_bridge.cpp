// I2C and block transfers to targets behind the hub, in their plain USB form.
#include <algorithm>

#include "device/usb_dev.h"
#include "log/msg.h"

namespace qzhid {

namespace {

constexpr std::size_t kPayloadSize = 64;
constexpr std::uint16_t kMaxLongAddressData = 58;  // data bytes of command 7
constexpr std::uint8_t kLongReadCommand = 0x27;

constexpr std::uint8_t kConfigRequest = 0xF6;
constexpr std::uint8_t kBlockOutRequest = 0xDC;
constexpr std::uint8_t kBlockInRequest = 0xEC;

/// Collects a block command's payload of at most 64 bytes.
class CPayload {
 public:
  void Append(std::uint32_t byte) { m_Bytes[m_nLength++] = LowByte(byte); }

  /// False when the data does not fit. Absent data travels as zeros.
  bool AppendData(const std::uint8_t* data, std::uint16_t len) {
    if (len > kPayloadSize - m_nLength) return false;
    if (data != nullptr) std::copy_n(data, len, m_Bytes.begin() + m_nLength);
    m_nLength = static_cast<std::uint8_t>(m_nLength + len);
    return true;
  }

  std::uint8_t* Data() { return m_Bytes.data(); }
  std::uint8_t Length() const { return m_nLength; }

 private:
  std::array<std::uint8_t, kPayloadSize> m_Bytes{};
  std::uint8_t m_nLength = 0;
};

enum class BuildResult { Ok, UnknownCommand, TooLong };

BuildResult BuildPayload(std::uint8_t cmd, std::uint32_t addr, const std::uint8_t* data,
                         std::uint16_t len, CPayload& payload) {
  payload.Append(addr);
  switch (cmd) {
    case 22:
      return BuildResult::Ok;
    case 1:
    case 2:
    case 3:
    case 5:
    case 16:
      payload.Append(addr >> 8);
      payload.Append(len);
      return BuildResult::Ok;
    case 4:
    case 6:
    case 19:
    case 20:
      payload.Append(addr >> 8);
      payload.Append(len);
      return payload.AppendData(data, len) ? BuildResult::Ok : BuildResult::TooLong;
    case 7:
      payload.Append(addr >> 8);
      payload.Append(addr >> 16);
      payload.Append(len);
      return len <= kMaxLongAddressData && payload.AppendData(data, len) ? BuildResult::Ok
                                                                         : BuildResult::TooLong;
    default:
      return BuildResult::UnknownCommand;
  }
}

std::uint16_t BlockValue(std::uint8_t cmd, std::uint8_t slave) {
  return static_cast<std::uint16_t>(cmd * 256 + slave);
}

SetupPacket I2CSetup(std::uint8_t bmRequestType, std::uint8_t bRequest, std::uint32_t addr,
                     std::uint16_t len) {
  return MakeSetup(bmRequestType, bRequest, static_cast<std::uint16_t>(addr & 0xFFFF),
                   static_cast<std::uint16_t>(addr >> 16), len);
}

}  // namespace

std::int32_t CUSBDev::I2CConfigImpl(std::uint8_t first, std::uint8_t second, std::uint8_t third) {
  const SetupPacket setup{0x40, kConfigRequest, second, first, LowByte(third | 0x80u), 0x80, 0, 0};
  const std::uint32_t result = CRequestCMD::Instance().Yv_CtlPipeNoDataOut(setup);
  if (result != 0) {
    CMsg::Instance().Log(3, "CUSBDev::I2CConfigImpl",
                         "Config Data Fail,steup "
                         "pkt:0x%02x,0x%02x,0x%02x,0x%02x,0x%02x,0x%02x,0x%02x,0x%02x\n",
                         setup[0], setup[1], setup[2], setup[3], setup[4], setup[5], setup[6],
                         setup[7]);
  }
  return static_cast<std::int32_t>(result);
}

std::int32_t CUSBDev::I2CWriteImpl(std::uint32_t addr, std::uint8_t* data, std::uint16_t len) {
  const SetupPacket setup = I2CSetup(0x40, kI2CWriteRequest, addr, len);
  const std::uint32_t result = CRequestCMD::Instance().Yv_CtlPipeOut(ToHeader(setup), data);
  if (result != 0) {
    CMsg::Instance().Log(3, "CUSBDev::I2CWriteImpl",
                         "Write Data Fail,ErrorCode:0x%08x,steup "
                         "pkt:0x%02x,0x%02x,0x%02x,0x%02x,0x%02x,0x%02x,0x%02x,0x%02x\n",
                         result, setup[0], setup[1], setup[2], setup[3], setup[4], setup[5],
                         setup[6], setup[7]);
  }
  return static_cast<std::int32_t>(result);
}

std::int32_t CUSBDev::I2CReadImpl(std::uint32_t addr, std::uint8_t* buf, std::uint16_t len) {
  constexpr const char* kTag = "CUSBDev::I2CReadImpl";
  if (len == 0) {
    CMsg::Instance().Log(3, kTag, "Read Data Fail,Data Length is < 1,Value:%d\n", len);
    return -1;
  }
  const SetupPacket setup = I2CSetup(0xC0, kI2CReadRequest, addr, len);
  const std::uint32_t result = CRequestCMD::Instance().Yv_CtlPipeIn(ToHeader(setup), buf);
  if (result != 0) {
    CMsg::Instance().Log(3, kTag,
                         "Read Data Fail,ErrorCode:0x%08x,steup "
                         "pkt:0x%02x,0x%02x,0x%02x,0x%02x,0x%02x,0x%02x,0x%02x,0x%02x\n",
                         result, setup[0], setup[1], setup[2], setup[3], setup[4], setup[5],
                         setup[6], setup[7]);
  }
  return static_cast<std::int32_t>(result);
}

std::int32_t CUSBDev::BlockOutTrans(const std::uint8_t* slave, std::uint8_t cmd, std::uint32_t addr,
                                    const std::uint8_t* data, std::uint16_t len,
                                    std::uint32_t timeout) {
  constexpr const char* kTag = "CUSBDev::BlockOutTrans";
  CPayload payload;
  switch (BuildPayload(cmd, addr, data, len, payload)) {
    case BuildResult::UnknownCommand:
      CMsg::Instance().Log(3, kTag, "Invalidate cmd:%x\n", cmd);
      return -1;
    case BuildResult::TooLong:
      CMsg::Instance().Log(3, kTag, "Data does not fit the payload,Length:%d\n", len);
      return -1;
    case BuildResult::Ok:
      break;
  }
  return static_cast<std::int32_t>(
      CRequestCMD::Instance().Yv_SendVDCmd(0x40, kBlockOutRequest, BlockValue(cmd, *slave), 0,
                                           payload.Data(), payload.Length(), timeout));
}

std::int32_t CUSBDev::BlockInTrans(const std::uint8_t* slave, std::uint8_t cmd, std::uint32_t addr,
                                   std::uint8_t* buf, std::uint16_t len, std::uint32_t timeout) {
  const bool isLongRead = m_bLongRead && cmd == kLongReadCommand;
  const std::uint32_t length = isLongRead ? LowByte(addr >> 16) * 256u + LowByte(len) : len;
  return static_cast<std::int32_t>(CRequestCMD::Instance().Yv_SendVDCmd(
      0xC0, kBlockInRequest, BlockValue(cmd, *slave), static_cast<std::uint16_t>(addr & 0xFFFF),
      buf, length, timeout));
}

}  // namespace qzhid
