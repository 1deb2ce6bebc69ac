// Listing of attached devices.
#include <cstdlib>
#include <string>

#include "QzHidAPI.h"
#include "api/dev_list_cache.h"
#include "api/export_frame.h"
#include "api/proxy_driver.h"
#include "discovery/hid_find.h"
#include "discovery/record_text.h"
#include "log/msg.h"
#include "platform/scope_guard.h"

using namespace qzhid;
using enum ConnectionUse;

namespace {

void LogRecords(const char* tag, const HidDevRecord* records, std::uint32_t count) {
  CMsg& msg = CMsg::Instance();
  if (!msg.IsHeard()) return;
  msg.Log(1, tag, "List Device Success,Hid Count is %d\n", static_cast<int>(count));
  for (std::uint32_t i = 0; i < count; ++i) {
    const HidDevRecord& record = records[i];
    const std::string id = platform::ToNarrow(ReadText(record.HwID, QZ_RECORD_TEXT_UNITS));
    msg.Log(1, tag, "Index:%d,dwInst:%d,Port:%d,Level:%d,HwID:%s,\n", static_cast<int>(i),
            static_cast<int>(record.dwInst), static_cast<int>(record.Port),
            static_cast<int>(record.Level), id.c_str());
  }
}

void ReleaseConnection() noexcept {
  try {
    CProxyDriver::Instance().QZ_UnInitProxyDriver();
  } catch (...) {
    LogException("CRequestCMD::QZ_UnInitProxyDriver");
  }
}

/// What both listings share; `list` asks the finder and `logFilter` logs what for.
template <class LogFilter, class List>
std::uint8_t ListDevices(const char* tag, HidDevRecord** ppList, std::uint32_t* pCount,
                         const LogFilter& logFilter, const List& list) {
  CMsg& msg = CMsg::Instance();
  CDevListCache& cache = CDevListCache::Instance();
  cache.Clear();
  msg.Log(1, tag, "Enter --->\n");
  logFilter();
  if (ppList == nullptr || pCount == nullptr) {
    msg.Log(3, tag, "Invalidate parameter\n");
    return 0;
  }
  CHidFind finder;
  CProxyDriver::Instance().QZ_InitProxyDriver();
  platform::CScopeGuard connection(ReleaseConnection);
  const bool isListed = list(finder) != 0;
  platform::CScopeGuard freeList([&] {
    if (!isListed) return;
    std::free(*ppList);
    *ppList = nullptr;
  });
  if (isListed) {
    LogRecords(tag, *ppList, *pCount);
  } else {
    msg.Log(3, tag, "List Hid Device Fail\n");
  }
  connection.RunNow();
  cache.Store(isListed ? *ppList : nullptr, *pCount);
  msg.Log(1, tag, "<--- Exit\n");
  freeList.Dismiss();
  return isListed && *pCount != 0 ? 1 : 0;
}

/// A refused listing sets its outputs like one that finds nothing.
template <class Body>
std::uint8_t RunListing(const char* name, std::uint32_t* pCount, const Body& body) {
  return Run({name, L"List Hid Device", TakeOver}, std::uint8_t{0}, body, [&] {
    if (pCount != nullptr) *pCount = 0;
  });
}

}  // namespace

uint8_t QZ_ListAllHidDev(HidDevRecord** ppList, uint32_t* pCount) {
  return RunListing("QZ_ListAllHidDev", pCount, [&](const char* tag) {
    return ListDevices(
        tag, ppList, pCount, [] {},
        [&](CHidFind& finder) { return finder.ListHidDevice(ppList, pCount); });
  });
}

uint8_t QZ_ListAllHidDevByVIDPID(uint32_t wVID, uint32_t wPID, HidDevRecord** ppList,
                                 uint32_t* pCount) {
  return RunListing("QZ_ListAllHidDevByVIDPID", pCount, [&](const char* tag) {
    return ListDevices(
        tag, ppList, pCount,
        [&] { CMsg::Instance().Log(0, tag, "Filter VID:%04x,PID:%04x\n", wVID, wPID); },
        [&](CHidFind& finder) { return finder.ListHidDevice(wVID, wPID, ppList, pCount); });
  });
}

void QZ_FreeDevList(HidDevRecord* pList) {
  Run({"QZ_FreeDevList", L"QZ FreeAllDevice"}, 0, [&](const char* tag) {
    CMsg::Instance().Log(1, tag, "In QZ_FreeAllDevice,Free Memory\n");
    std::free(pList);
    return 0;
  });
}
