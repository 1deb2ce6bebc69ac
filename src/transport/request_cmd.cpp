#include "transport/request_cmd.h"

#include <algorithm>
#include <string>

#include "log/msg.h"
#include "platform/platform.h"
#include "transport/transfers.h"

namespace qzhid {

namespace {

constexpr std::uint32_t kValidationTimeoutMs = 50000;
constexpr std::uint32_t kMaxFlashWrite = 4096;
constexpr std::uint16_t kEnableIndex = 0x2E7C;
constexpr std::uint16_t kResetCodeValue = 0x0101;

constexpr std::uint16_t LowWord(std::uint32_t value) {
  return static_cast<std::uint16_t>(value & 0xFFFF);
}
constexpr std::uint16_t HighWord(std::uint32_t value) {
  return static_cast<std::uint16_t>(value >> 16);
}

const char* PlatformText(platform::Architecture architecture) {
  switch (architecture) {
    case platform::Architecture::X86:
      return " Platform:x86";
    case platform::Architecture::X64:
      return " Platform:x64";
    case platform::Architecture::Arm64:
      return " Platform:ARM64";
    case platform::Architecture::Unknown:
      break;
  }
  return "Unknown Platform";
}

void LogHost(const char* tag) {
  CMsg& msg = CMsg::Instance();
  const platform::HostDescription host = platform::DescribeHost();
  std::string line;
  if (!host.hasVersionStore) {
    msg.Log(3, tag, "RegOpenKeyEx failed.\n");
  } else {
    if (!host.productName) msg.Log(3, tag, "Query Product Name Failed\n");
    line = "OS Type:" + host.productName.value_or("") +
           " OS Version:" + std::to_string(host.major) + "." + std::to_string(host.minor) + "." +
           std::to_string(host.build);
    if (host.major >= 10) {
      if (host.updateRevision) {
        line += "." + std::to_string(*host.updateRevision);
      } else {
        msg.Log(3, tag, "Query UBR failed.\n");
      }
    }
  }
  line += PlatformText(host.architecture);
  msg.Log(0, tag, "%s\n", line.c_str());
}

}  // namespace

struct CRequestCMD::RequestCode {
  std::uint8_t bmRequestType, bRequest;
};

/// The data stage of a request and the time that it may wait for the device.
struct CRequestCMD::Stage {
  std::uint8_t* data = nullptr;
  std::uint32_t length = 0;
  std::uint32_t timeoutMs = kRequestTimeoutMs;
};

CRequestCMD& CRequestCMD::Instance() {
  static constinit platform::CProcessObject<CRequestCMD> object;
  CRequestCMD& instance = object.Get();
  if (!instance.m_bHostLogged.test_and_set()) LogHost("CRequestCMD::CRequestCMD");
  return instance;
}

bool CRequestCMD::HasProperty(const char* tag) const {
  if (m_pProperty == nullptr) CMsg::Instance().Log(3, tag, "Property Object is null!!\n");
  return m_pProperty != nullptr;
}

std::uint32_t CRequestCMD::Send(const char* tag, const RequestCode& code, std::uint16_t wValue,
                                std::uint16_t wIndex, const Stage& stage) {
  if (!HasProperty(tag)) return kRefused;
  return m_pProperty->Yv_SendVDCmd(code.bmRequestType, code.bRequest, wValue, wIndex, stage.data,
                                   stage.length, stage.timeoutMs);
}

std::uint32_t CRequestCMD::QZ_OpenDevice(std::uint32_t devInst) {
  if (!HasProperty("CRequestCMD::QZ_OpenDevice")) return kRefused;
  return m_pProperty->Yv_OpenDeviceByDevInst(devInst);
}

std::uint32_t CRequestCMD::Yv_CloseDevice() {
  if (!HasProperty("CRequestCMD::Yv_CloseDevice")) return kRefused;
  return m_pProperty->Yv_CloseDevice();
}

std::uint32_t CRequestCMD::YvHid_IsWqHid(std::uint32_t devInst) {
  if (!HasProperty("CRequestCMD::YvHid_IsWqHid")) return kRefused;
  return m_pProperty->Yv_IsWqHid(devInst);
}

std::uint32_t CRequestCMD::Yv_VdCmdEnable(std::uint8_t value) {
  return Send("CRequestCMD::Yv_VdCmdEnable", {0x40, 0x02}, value, kEnableIndex, {});
}

std::uint32_t CRequestCMD::Yv_Status(std::uint8_t* block) {
  return Send("CRequestCMD::Yv_Status", {0xC0, 0x09}, 0, 0, {block, kStatusBlockSize});
}

std::uint32_t CRequestCMD::Yv_WriteFlash2(std::uint32_t addr, const std::uint8_t* image,
                                          std::uint32_t length) {
  constexpr const char* kTag = "CRequestCMD::Yv_WriteFlash2";
  if (!HasProperty(kTag)) return kRefused;
  auto* data = const_cast<std::uint8_t*>(image);  // an OUT stage is only read
  while (length > 0) {
    const std::uint32_t chunk = std::min(length, kMaxFlashWrite);
    const std::uint32_t result =
        Send(kTag, {0x40, 0xC8}, LowWord(addr), HighWord(addr), {data, chunk});
    if (result != 0) return result;
    addr += chunk;
    data += chunk;
    length -= chunk;
  }
  return 0;
}

std::uint32_t CRequestCMD::Yv_ReadFlash2(std::uint32_t addr, std::uint8_t* buffer,
                                         std::uint32_t length) {
  return Send("CRequestCMD::Yv_ReadFlash2", {0xC0, 0xD8}, LowWord(addr), HighWord(addr),
              {buffer, length});
}

std::uint32_t CRequestCMD::Yv_EraseFlash2(std::uint32_t addr) {
  return Send("CRequestCMD::Yv_EraseFlash2", {0x40, 0xE8}, LowWord(addr), HighWord(addr), {});
}

std::uint32_t CRequestCMD::Yv_FWReset(std::uint16_t uOption) {
  constexpr const char* kTag = "CRequestCMD::Yv_FWReset";
  if (!HasProperty(kTag)) return kRefused;
  CMsg::Instance().Log(0, kTag, "YvHub_FWReset(USHORT uOption=0x%02x)\n ", uOption);
  return Send(kTag, {0x40, 0x00}, uOption, 0, {});
}

std::uint32_t CRequestCMD::Yv_ResetCode() {
  return Send("CRequestCMD::Yv_ResetCode", {0x40, 0xE9}, kResetCodeValue, 0, {});
}

std::uint32_t CRequestCMD::Yv_ISPValidation() {
  return Send("CRequestCMD::Yv_ISPValidation", {0x40, 0xD9}, 1, 0,
              {nullptr, 0, kValidationTimeoutMs});
}

std::uint32_t CRequestCMD::Yv_SetDLSlaveAddr(std::uint8_t mode, std::uint8_t bySlaveAddr) {
  constexpr const char* kTag = "CRequestCMD::Yv_SetDLSlaveAddr";
  if (!HasProperty(kTag)) return kRefused;
  CMsg::Instance().Log(0, kTag, "YvHub_SetDLSlaveAddr -> mode=%d, bySlaveAddr=%d\n", mode,
                       bySlaveAddr);
  const auto value = static_cast<std::uint16_t>(bySlaveAddr * 256 + mode);
  return Send(kTag, {0x40, 0x08}, value, 0, {}) == 0 ? 0 : 1;
}

std::uint32_t CRequestCMD::Yv_SendVDCmd(std::uint8_t bmRequestType, std::uint8_t bRequest,
                                        std::uint16_t wValue, std::uint16_t wIndex,
                                        std::uint8_t* data, std::uint32_t wLength,
                                        std::uint32_t timeoutMs) {
  return Send("CRequestCMD::Yv_SendVDCmd", {bmRequestType, bRequest}, wValue, wIndex,
              {data, wLength, timeoutMs});
}

std::uint32_t CRequestCMD::Yv_CtlPipeNoDataOut(const SetupPacket& setup) {
  if (!HasProperty("CRequestCMD::Yv_CtlPipeNoDataOut")) return kRefused;
  return m_pProperty->CtlPipeNoDataOut(setup);
}

std::uint32_t CRequestCMD::Yv_CtlPipeOut(const PacketHeader& header, std::uint8_t* data) {
  if (!HasProperty("CRequestCMD::Yv_CtlPipeOut")) return kRefused;
  return m_pProperty->CtlPipeOut(header, data);
}

std::uint32_t CRequestCMD::Yv_CtlPipeIn(const PacketHeader& header, std::uint8_t* buffer) {
  if (!HasProperty("CRequestCMD::Yv_CtlPipeIn")) return kRefused;
  return m_pProperty->CtlPipeIn(header, buffer);
}

}  // namespace qzhid
