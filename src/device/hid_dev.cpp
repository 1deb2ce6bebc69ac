// Flash and I2C.
#include "device/hid_dev.h"

#include "firmware/fw_image.h"
#include "log/msg.h"
#include "transport/transfers.h"

namespace qzhid {

namespace {

constexpr std::uint32_t kChunkSize = 128;  // a chunk and its header fit one report
constexpr std::uint32_t kEraseAddress = 0x100;
constexpr std::uint16_t kMaxI2CWrite = 128;
constexpr std::uint16_t kMaxI2CRead = 192;

}  // namespace

PacketHeader MakeI2CHeader(std::uint8_t bRequest, std::uint32_t addr, std::uint8_t len,
                           const I2CConfig& config) {
  return {0x40,
          bRequest,
          LowByte(addr),
          LowByte(addr >> 8),
          LowByte(addr >> 16),
          LowByte(addr >> 24),
          len,
          0x00,
          config[0],
          config[1],
          LowByte(config[2] | 0x80u)};
}

std::uint32_t ReportTransfer(const char* tag, const char* format, std::uint32_t result,
                             const PacketHeader& header) {
  if (result == 0) return result;
  CMsg::Instance().Log(3, tag, format, result);
  CMsg::Instance().Log(3, tag,
                       "steup pkt:0x%02x 0x%02x 0x%02x 0x%02x 0x%02x 0x%02x 0x%02x 0x%02x 0x%02x "
                       "0x%02x 0x%02x\n",
                       header[0], header[1], header[2], header[3], header[4], header[5], header[6],
                       header[7], header[8], header[9], header[10]);
  return result;
}

bool CHidDev::GetBinVersion(std::uint16_t* version, std::uint8_t mode) {
  return !m_FwBuf.empty() && ReadImageVersion("CHidDev::GetBinVersion", m_FwBuf, mode, *version);
}

bool CHidDev::WriteFlashEx(const FwBuffer& image) {
  constexpr const char* kTag = "CHidDev::WriteFlashEx";
  CMsg& msg = CMsg::Instance();
  CRequestCMD& request = CRequestCMD::Instance();
  if (!VdCmdEnable(kEnableFlashWrite)) {
    msg.Log(3, kTag, "Set VdCmdEnable Value 3 Fail\n");
    return false;
  }
  StatusBlock status{};
  if (request.Yv_Status(status.data()) != 0) {
    msg.Log(3, kTag, "Read Status Fail\n");
    return false;
  }
  const bool isFast = request.Yv_SendVDCmd(0x40, 0x06, 1, 0, nullptr, 0, kRequestTimeoutMs) == 0;
  msg.Log(0, kTag, "Enable High Clock Mode return %s\n", isFast ? "true" : "false");
  if (request.Yv_EraseFlash2(kEraseAddress) != 0) {
    msg.Log(3, kTag, "Erase Flash Fail\n");
    return false;
  }
  return WriteChunks(image, kChunkSize, true);
}

bool CHidDev::ReadFlash(FwBuffer& buffer) { return ReadChunks(buffer, kChunkSize); }

std::int32_t CHidDev::I2CConfigImpl(std::uint8_t first, std::uint8_t second, std::uint8_t third) {
  const std::lock_guard<std::mutex> lock(m_I2CLock);
  m_I2CCfg = {first, second, third};
  return 0;
}

I2CConfig CHidDev::GetI2CConfig() const {
  const std::lock_guard<std::mutex> lock(m_I2CLock);
  return m_I2CCfg;
}

std::int32_t CHidDev::I2CWriteImpl(std::uint32_t addr, std::uint8_t* data, std::uint16_t len) {
  constexpr const char* kTag = "CHidDev::I2CWriteImpl";
  if (len > kMaxI2CWrite) {
    CMsg::Instance().Log(3, kTag, "Write Data Fail,Data Length is < 1,Value:%d\n", len);
    return -1;
  }
  const PacketHeader header = MakeI2CHeader(kI2CWriteRequest, addr, LowByte(len), GetI2CConfig());
  const std::uint32_t result = CRequestCMD::Instance().Yv_CtlPipeOut(header, data);
  return static_cast<std::int32_t>(ReportTransfer(kTag, kWriteFailure, result, header));
}

std::int32_t CHidDev::I2CReadImpl(std::uint32_t addr, std::uint8_t* buf, std::uint16_t len) {
  constexpr const char* kTag = "CHidDev::I2CReadImpl";
  if (len == 0 || len > kMaxI2CRead) {
    CMsg::Instance().Log(3, kTag, "Read Data Fail,Data Length Value:%d\n", len);
    return -1;
  }
  const PacketHeader header = MakeI2CHeader(kI2CReadRequest, addr, LowByte(len), GetI2CConfig());
  const std::uint32_t result = CRequestCMD::Instance().Yv_CtlPipeIn(header, buf);
  return static_cast<std::int32_t>(ReportTransfer(kTag, kReadFailure, result, header));
}

}  // namespace qzhid
