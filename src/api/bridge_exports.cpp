// The I2C master of the hub and the flash behind it.
#include <algorithm>
#include <array>
#include <memory>

#include "QzHidAPI.h"
#include "api/export_frame.h"
#include "api/handle_table.h"
#include "log/msg.h"
#include "transport/request_cmd.h"
#include "transport/transfers.h"

using namespace qzhid;
using enum ConnectionUse;

namespace {

constexpr std::uint8_t kMaxMemLen = 5;
constexpr std::uint8_t kMaxSpeed = 2;
constexpr std::uint16_t kMaxWrite = 128;
constexpr std::uint16_t kMaxRead = 192;
constexpr std::uint16_t kMaxAddressBytes = 5;
constexpr std::size_t kBlockHeader = 10;
constexpr std::uint8_t kMaxBlockPool = 54;

constexpr const char* kStageFailure = "Hid I2C Stage WriteFlash Fail,ErrorCode:0x%08x\n";
constexpr const char* kStatusFailure = "Hid I2C Block Read Status Fail,ErrorCode:0x%08x\n";

/// The handle's device for a transfer between one buffer and an address; null when the arguments or
/// the handle are refused.
std::shared_ptr<CHidDev> FindForTransfer(const char* tag, void* pDev, std::uint32_t dwAddr,
                                         const void* pBuf, std::uint16_t wlen,
                                         std::uint16_t maxLength) {
  if (pDev == nullptr || pBuf == nullptr || wlen > maxLength) {
    CMsg::Instance().Log(3, tag, "Check Fail,pDev is %p,dwAddr is %d,pBuf is %p,wlen is %d\n", pDev,
                         static_cast<int>(dwAddr), pBuf, wlen);
    return nullptr;
  }
  return CHandleTable::Instance().FindHidDev(tag, pDev);
}

bool HasHidDev(const char* tag, void* pDev) {
  return CHandleTable::Instance().FindHidDev(tag, pDev) != nullptr;
}

/// Logs a failure by `format`, which takes its code. Returns the code.
std::uint32_t Report(const char* tag, const char* format, std::uint32_t result) {
  if (result != 0) CMsg::Instance().Log(3, tag, format, result);
  return result;
}
std::uint32_t Report(const char* tag, const char* format, std::int32_t result) {
  return Report(tag, format, static_cast<std::uint32_t>(result));
}

std::uint32_t Send(std::uint8_t bmRequestType, std::uint8_t bRequest, std::uint32_t dwAddr,
                   std::uint8_t* data, std::uint16_t length) {
  return CRequestCMD::Instance().Yv_SendVDCmd(
      bmRequestType, bRequest, static_cast<std::uint16_t>(dwAddr & 0xFFFF),
      static_cast<std::uint16_t>(dwAddr >> 16), data, length, kRequestTimeoutMs);
}

std::uint32_t Stage(std::uint32_t dwAddr, std::uint8_t* data, std::uint16_t length) {
  return Send(0x00, 0xCF, dwAddr, data, length);
}

}  // namespace

uint32_t QZ_HidI2CConfig(void* pDev, uint8_t bySlaveAddr, uint8_t byMemLen, uint8_t bySpeed) {
  return Run({"QZ_HidI2CConfig", L"QZ HidI2CConfig", Share}, kRefused, [&](const char* tag) {
    if (pDev == nullptr || bySlaveAddr == 0 || byMemLen > kMaxMemLen || bySpeed > kMaxSpeed) {
      CMsg::Instance().Log(3, tag,
                           "Check Fail,pDev is %p,bySlaveAddr is %d,bySpeed is %d,byMemLen is %d\n",
                           pDev, bySlaveAddr, bySpeed, byMemLen);
      return kRefused;
    }
    const auto dev = CHandleTable::Instance().FindHidDev(tag, pDev);
    if (!dev) return kRefused;
    return Report(tag, "I2C Config Fail,ErrorCode:0x%08x\n",
                  dev->I2CConfigImpl(bySlaveAddr, byMemLen, bySpeed));
  });
}

uint32_t QZ_HidI2CWrite(void* pDev, uint32_t dwAddr, uint8_t* pBuf, uint16_t wlen) {
  return Run({"QZ_HidI2CWrite", L"QZ HidI2CWrite", Share}, kRefused, [&](const char* tag) {
    const auto dev = FindForTransfer(tag, pDev, dwAddr, pBuf, wlen, kMaxWrite);
    if (!dev) return kRefused;
    return Report(tag, "I2C Write Fail,ErrorCode:0x%08x\n", dev->I2CWriteImpl(dwAddr, pBuf, wlen));
  });
}

uint32_t QZ_HidI2CRead(void* pDev, uint32_t dwAddr, uint8_t* pBuf, uint16_t wlen) {
  return Run({"QZ_HidI2CRead", L"QZ HidI2CRead", Share}, kRefused, [&](const char* tag) {
    const auto dev = FindForTransfer(tag, pDev, dwAddr, pBuf, wlen, kMaxRead);
    if (!dev) return kRefused;
    return Report(tag, "I2C Read Fail,ErrorCode:0x%08x\n", dev->I2CReadImpl(dwAddr, pBuf, wlen));
  });
}

uint32_t QZ_HidI2CRead2(void* pDev, uint8_t* AddrBuf, uint16_t wAddrBufLen, uint8_t* pBuf,
                        uint16_t wBuflen) {
  return Run({"QZ_HidI2CRead2", L"QZ HidI2CRead", Share}, kRefused, [&](const char* tag) {
    if (pDev == nullptr || AddrBuf == nullptr || pBuf == nullptr ||
        wAddrBufLen > kMaxAddressBytes) {
      CMsg::Instance().Log(
          3, tag,
          "Check Fail,pDev is %p,AddrBuf is %p,wAddrBufLen is %d,pBuf is %p,wBuflen is %d\n", pDev,
          static_cast<void*>(AddrBuf), wAddrBufLen, static_cast<void*>(pBuf), wBuflen);
      return kRefused;
    }
    const auto dev = CHandleTable::Instance().FindHidDev(tag, pDev);
    if (!dev) return kRefused;
    std::array<std::uint8_t, kMaxAddressBytes> address{};
    std::copy_n(AddrBuf, wAddrBufLen, address.begin());
    PacketHeader header = MakeI2CHeader(kI2CReadRequest, 0, LowByte(wBuflen), dev->GetI2CConfig());
    std::copy_n(address.begin(), 4, header.begin() + 2);
    header[7] = address[4];
    const std::uint32_t result = CRequestCMD::Instance().Yv_CtlPipeIn(header, pBuf);
    return ReportTransfer(tag, kReadFailure, result, header);
  });
}

uint32_t QZ_HidI2CBlockWriteFlash(void* pDev, uint32_t dwAddr, uint8_t* pBuf, uint16_t wlen) {
  constexpr ExportCall kCall{"QZ_HidI2CBlockWriteFlash", L"QZ_HidI2CBlockWriteFlash", Share};
  return Run(kCall, kRefused, [&](const char* tag) {
    if (!FindForTransfer(tag, pDev, dwAddr, pBuf, wlen, kMaxWrite)) return kRefused;
    return Report(tag, "Hid I2C Block WriteFlash Fail,ErrorCode:0x%08x\n",
                  Send(0x40, 0xF1, dwAddr, pBuf, wlen));
  });
}

uint32_t QZ_Stage_Flash(void* pDev, uint32_t dwAddr, uint8_t* pBuf, uint16_t wlen) {
  return Run({"QZ_Stage_Flash", L"QZ_Stage_Flash", Share}, kRefused, [&](const char* tag) {
    if (!FindForTransfer(tag, pDev, dwAddr, pBuf, wlen, kMaxWrite)) return kRefused;
    return Report(tag, kStageFailure, Stage(dwAddr, pBuf, wlen));
  });
}

uint32_t QZ_Write_Byte(void* pDev, uint32_t dwAddr, uint8_t* pBuf, uint16_t wlen) {
  return Run({"QZ_Write_Byte", nullptr, Share}, kRefused, [&](const char* tag) {
    if (pDev == nullptr || pBuf == nullptr) {
      CMsg::Instance().Log(3, tag, "Check Fail,pDev is %p,dwAddr is %d,pBuf is %p\n", pDev,
                           static_cast<int>(dwAddr), static_cast<void*>(pBuf));
      return kRefused;
    }
    if (!HasHidDev(tag, pDev)) return kRefused;
    return Report(tag, kStageFailure, Stage(dwAddr, pBuf, wlen));
  });
}

uint32_t QZ_HidI2CBlockEraseFlash(void* pDev) {
  constexpr ExportCall kCall{"QZ_HidI2CBlockEraseFlash", L"QZ_HidI2CBlockEraseFlash", Share};
  return Run(kCall, kRefused, [&](const char* tag) {
    if (pDev == nullptr) {
      CMsg::Instance().Log(3, tag, "Check Fail,pDev is %p\n", pDev);
      return kRefused;
    }
    if (!HasHidDev(tag, pDev)) return kRefused;
    return Report(tag, "Hid I2C Block Erase Flash Fail,ErrorCode:0x%08x\n",
                  Send(0x40, 0xF4, 0, nullptr, 0));
  });
}

uint32_t QZ_HidI2CBlockStatus(void* pDev, uint8_t* pI2CStatus) {
  constexpr ExportCall kCall{"QZ_HidI2CBlockStatus", L"QZ_HidI2CBlockStatus", Share};
  return Run(kCall, kRefused, [&](const char* tag) {
    if (pDev == nullptr || pI2CStatus == nullptr) {
      CMsg::Instance().Log(3, tag, "Check Fail,pDev is %p,pI2CStatus is %p\n", pDev,
                           static_cast<void*>(pI2CStatus));
      return kRefused;
    }
    if (!HasHidDev(tag, pDev)) return kRefused;
    return Report(tag, kStatusFailure, Send(0xC0, 0xF3, 0, pI2CStatus, 1));
  });
}

uint32_t QZ_MST_HidI2CBlock(void* pDev, uint8_t byCmd1, uint8_t byCmd2, uint8_t byCmd3,
                            uint32_t dwAddr, uint32_t dwOffset, uint8_t* pVdCmdPool,
                            uint8_t byVdCmdPoolLen) {
  return Run({"QZ_MST_HidI2CBlock", L"QZ_MST_HidI2CBlock", Share}, kRefused, [&](const char* tag) {
    const bool hasPool = byVdCmdPoolLen == 0 || pVdCmdPool != nullptr;
    if (pDev == nullptr || byVdCmdPoolLen > kMaxBlockPool || !hasPool) {
      CMsg::Instance().Log(3, tag, "Check Fail,pDev is %p,byVdCmdPoolLen is %d\n", pDev,
                           byVdCmdPoolLen);
      return kRefused;
    }
    if (!HasHidDev(tag, pDev)) return kRefused;
    const std::uint32_t target = dwAddr + dwOffset;
    std::array<std::uint8_t, kBlockHeader + kMaxBlockPool> block{0x40,
                                                                 0xF2,
                                                                 byCmd1,
                                                                 byCmd2,
                                                                 0x00,
                                                                 byCmd3,
                                                                 LowByte(target),
                                                                 LowByte(target >> 8),
                                                                 LowByte(target >> 16),
                                                                 LowByte(target >> 24)};
    std::copy_n(pVdCmdPool, byVdCmdPoolLen, block.begin() + kBlockHeader);
    const auto length = static_cast<std::uint16_t>(byVdCmdPoolLen + kBlockHeader);
    return Report(tag, kStatusFailure, Send(0x40, 0xF2, 0, block.data(), length));
  });
}
