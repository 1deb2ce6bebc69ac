// The GPIO lines of the hub.
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

constexpr std::uint32_t kLines = 24;
constexpr std::uint32_t kRefusedLine = 1;

/// Whether a line can be used through that handle; logs why not.
bool IsLineUsable(const char* tag, void* pDev, std::uint32_t gpio) {
  CMsg& msg = CMsg::Instance();
  if (pDev == nullptr) {
    msg.Log(3, tag, "pDev is NULL\n");
    return false;
  }
  const auto dev = CHandleTable::Instance().Find(pDev);
  if (!dev || !dev->IsConnected()) {
    msg.Log(3, tag, "Device is not present\n");
    return false;
  }
  if (gpio >= kLines) {
    msg.Log(3, tag, "GPIO Num is out of range\n");
    return false;
  }
  return true;
}

std::uint8_t SetHubGpio(const char* tag, std::uint32_t gpio, std::uint8_t level) {
  CMsg& msg = CMsg::Instance();
  msg.Log(0, tag, "------>\n");
  const auto value = static_cast<std::uint16_t>(level * 256 + 1);
  const std::uint32_t result = CRequestCMD::Instance().Yv_SendVDCmd(
      0x40, 0x04, value, static_cast<std::uint16_t>(gpio), nullptr, 0, kRequestTimeoutMs);
  if (result == 0) {
    msg.Log(1, tag, "Set GPIO %d %d sucess\n", static_cast<int>(gpio), level);
  } else {
    msg.Log(3, tag, "Set GPIO %d %d fail\n", static_cast<int>(gpio), level);
  }
  msg.Log(0, tag, "<------\n");
  return result == 0 ? 1 : 0;
}

}  // namespace

uint32_t QZ_HidGPIOR(void* pDev, uint32_t gpio, uint8_t* pBuf, uint32_t length) {
  return Run({"QZ_HidGPIOR", L"QZ_HidGPIOR", Share}, kRefusedLine,
             [&](const char* tag) -> std::uint32_t {
               if (!IsLineUsable(tag, pDev, gpio)) return kRefusedLine;
               const std::uint32_t wLength = length & 0xFFFF;
               if (pBuf == nullptr && wLength != 0) {
                 CMsg::Instance().Log(3, tag, "Check Fail,pBuf is %p,length is %d\n",
                                      static_cast<void*>(pBuf), static_cast<int>(wLength));
                 return kRefusedLine;
               }
               return CRequestCMD::Instance().Yv_SendVDCmd(0xC0, 0x04,
                                                           static_cast<std::uint16_t>(gpio * 256),
                                                           0, pBuf, wLength, kRequestTimeoutMs);
             });
}

uint32_t QZ_HidGPIOW(void* pDev, uint32_t gpio, uint32_t level) {
  return Run({"QZ_HidGPIOW", L"QZ_HidGPIOW", Share}, kRefusedLine,
             [&](const char* tag) -> std::uint32_t {
               if (!IsLineUsable(tag, pDev, gpio)) return kRefusedLine;
               return CRequestCMD::Instance().Yv_SendVDCmd(
                   0x40, 0x0C, static_cast<std::uint16_t>(gpio * 256),
                   static_cast<std::uint16_t>((level & 0xFF) * 256), nullptr, 0, kRequestTimeoutMs);
             });
}

uint8_t QZ_HidSetHubGPIO(void* pDev, uint32_t gpio, uint8_t level) {
  return Run({"QZ_HidSetHubGPIO", L"QZ_HidSetHubGPIO", Share}, uint8_t{0},
             [&](const char* tag) -> std::uint8_t {
               if (pDev == nullptr) {
                 CMsg::Instance().Log(3, tag, "pDev is NULL\n");
                 return 0;
               }
               return SetHubGpio(tag, gpio, level);
             });
}
