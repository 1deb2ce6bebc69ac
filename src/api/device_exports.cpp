// Opening and closing of devices.
#include <memory>
#include <string>

#include "QzHidAPI.h"
#include "api/dev_list_cache.h"
#include "api/export_frame.h"
#include "api/handle_table.h"
#include "api/pass_para.h"
#include "api/proxy_driver.h"
#include "discovery/hid_find.h"
#include "discovery/node_matchers.h"
#include "discovery/record_text.h"
#include "log/msg.h"
#include "platform/scope_guard.h"
#include "transport/request_cmd.h"
#include "transport/transfers.h"

using namespace qzhid;
using enum ConnectionUse;

namespace {

constexpr int kConnectWait = 10;  // seconds
constexpr std::uint16_t kUpFrequency = 1;
constexpr std::uint16_t kDownFrequency = 0;

std::uint32_t SetFrequency(std::uint16_t value) {
  return CRequestCMD::Instance().Yv_SendVDCmd(0x40, 0x06, value, 0, nullptr, 0, kRequestTimeoutMs);
}

void* OpenListed(const char* tag, const HidDevRecord& record) {
  CMsg& msg = CMsg::Instance();
  CHidFind finder;
  const auto dev = std::make_shared<CHidDev>(NodeMatchers());
  finder.AddDev(dev.get());
  dev->SetTopology(ReadText(record.LocationPath, QZ_RECORD_TEXT_UNITS));
  CProxyDriver::Instance().QZ_InitProxyDriver();
  // Unless the host gets the handle, it is forgotten and what was opened for it is closed again.
  void* handle = nullptr;
  platform::CScopeGuard undoing([&handle] {
    CHandleTable::Instance().Take(handle);
    CRequestCMD::Instance().Yv_CloseDevice();
  });
  if (!finder.WaitDevConnect(dev.get(), kConnectWait)) {
    msg.Log(3, tag, "Open Hid failed\n");
    return nullptr;
  }
  handle = CHandleTable::Instance().Add(dev);
  const auto devInst = static_cast<int>(record.dwInst);
  DebugPrint(L"Open Hid Success, Hid DevInst is %d, DevObject is %p\n", devInst, handle);
  msg.Log(1, tag, "Open Hid Success,Hid DevInst is %d,DevObject is %p\n", devInst, handle);
  if (const std::uint32_t result = SetFrequency(kUpFrequency); result != 0) {
    msg.Log(3, tag, "WARNING!!,Failed to send up frequency command,ErrorCode:%d\n",
            static_cast<int>(result));
  }
  msg.Log(0, tag, "Open Hid Dev is %p\n", handle);
  undoing.Dismiss();
  return handle;
}

}  // namespace

void* QZ_OpenHid(uint32_t DevInst) {
  constexpr void* kNone = nullptr;
  return Run({"QZ_OpenHid", L"QZ Open Hid", TakeOver}, kNone, [&](const char* tag) {
    const HidDevRecord* const record = CDevListCache::Instance().Find(DevInst);
    if (record == nullptr || record->dwDevType != QZ_DEVICE_TYPE_HID) return kNone;
    return OpenListed(tag, *record);
  });
}

void QZ_CloseDev(void* pDev) {
  Run({"QZ_CloseDev", L"QZ CloseDevice", Close, pDev}, 0, [&](const char* tag) {
    CProxyDriver& proxy = CProxyDriver::Instance();
    // Whatever stops the closing, the device does not stay open.
    const platform::CScopeGuard closing([&proxy] {
      if (proxy.IsInitialised()) CRequestCMD::Instance().Yv_CloseDevice();
    });
    const std::shared_ptr<IDev> dev = CHandleTable::Instance().Take(pDev);
    if (proxy.IsInitialised()) {
      const std::uint32_t result = SetFrequency(kDownFrequency);
      CMsg::Instance().Log(3, tag, "Frequency reduction Result is %d\n", static_cast<int>(result));
    }
    DebugPrint(L"Frequency reduction Result is %p\n", pDev);
    if (dev) dev->Remove();
    proxy.QZ_UnInitProxyDriver();
    return 0;
  });
}

void QZ_DllPassPara(uint32_t value) { PassPara() = value; }
