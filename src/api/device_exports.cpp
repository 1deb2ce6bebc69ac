// Opening and closing of devices.
#include <memory>
#include <string>

#include "QzHidAPI.h"
#include "api/dev_list_cache.h"
#include "api/export_guard.h"
#include "api/handle_table.h"
#include "api/pass_para.h"
#include "api/proxy_driver.h"
#include "discovery/hid_find.h"
#include "discovery/record_text.h"
#include "log/msg.h"
#include "transport/request_cmd.h"

using namespace qzhid;
using enum ConnectionUse;

namespace {

constexpr int kConnectWait = 10;  // seconds
constexpr std::uint32_t kTimeoutMs = 5000;
constexpr std::uint16_t kUpFrequency = 1;
constexpr std::uint16_t kDownFrequency = 0;

std::uint32_t SetFrequency(std::uint16_t value) {
  return CRequestCMD::Instance().Yv_SendVDCmd(0x40, 0x06, value, 0, nullptr, 0, kTimeoutMs);
}

/// Closes what was opened for a hub that then did not answer, unless the opening is done.
class COpening {
 public:
  COpening() { CProxyDriver::Instance().QZ_InitProxyDriver(); }
  ~COpening() {
    if (!m_bDone) CRequestCMD::Instance().Yv_CloseDevice();
  }
  COpening(const COpening&) = delete;
  COpening& operator=(const COpening&) = delete;
  void Done() { m_bDone = true; }

 private:
  bool m_bDone = false;
};

void* OpenListed(const HidDevRecord& record) {
  constexpr const char* kTag = "QZ_OpenHid";
  CMsg& msg = CMsg::Instance();
  CHidFind finder;
  const auto dev = std::make_shared<CHidDev>();
  finder.AddDev(dev.get());
  dev->SetTopology(ReadText(record.LocationPath, QZ_RECORD_TEXT_UNITS));
  COpening opening;
  if (!finder.WaitDevConnect(dev.get(), kConnectWait)) {
    msg.Log(3, kTag, "Open Hid failed\n");
    return nullptr;
  }
  void* const handle = CHandleTable::Instance().Add(dev);
  opening.Done();
  const auto devInst = static_cast<int>(record.dwInst);
  DebugPrint(L"Open Hid Success, Hid DevInst is %d, DevObject is %p\n", devInst, handle);
  msg.Log(1, kTag, "Open Hid Success,Hid DevInst is %d,DevObject is %p\n", devInst, handle);
  if (const std::uint32_t result = SetFrequency(kUpFrequency); result != 0) {
    msg.Log(3, kTag, "WARNING!!,Failed to send up frequency command,ErrorCode:%d\n",
            static_cast<int>(result));
  }
  msg.Log(0, kTag, "Open Hid Dev is %p\n", handle);
  return handle;
}

}  // namespace

void* QZ_OpenHid(uint32_t DevInst) {
  constexpr void* kNone = nullptr;
  return RunDeviceExport(TakeOver, "QZ_OpenHid", L"QZ Open Hid", kNone, [&] {
    const HidDevRecord* const record = CDevListCache::Instance().Find(DevInst);
    if (record == nullptr || record->dwDevType != QZ_DEVICE_TYPE_HID) return kNone;
    return OpenListed(*record);
  });
}

void QZ_CloseDev(void* pDev) {
  constexpr const char* kTag = "QZ_CloseDev";
  RunExport(kTag, L"QZ CloseDevice", 0, [&] {
    const CCallGate::CPass pass(Close, pDev);
    if (!pass) {
      if (!pass.IsDeferred()) LogUpdateIsRunning(kTag);
      return 0;
    }
    CProxyDriver& proxy = CProxyDriver::Instance();
    const std::shared_ptr<IDev> dev = CHandleTable::Instance().Take(pDev);
    if (proxy.IsInitialised()) {
      const std::uint32_t result = SetFrequency(kDownFrequency);
      CMsg::Instance().Log(3, kTag, "Frequency reduction Result is %d\n", static_cast<int>(result));
    }
    DebugPrint(L"Frequency reduction Result is %p\n", pDev);
    if (dev) dev->Remove();
    proxy.QZ_UnInitProxyDriver();
    return 0;
  });
}

void QZ_DllPassPara(uint32_t value) { PassPara() = value; }
