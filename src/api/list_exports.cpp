// Listing of attached devices.
#include <cstdlib>
#include <optional>
#include <string>

#include "QzHidAPI.h"
#include "api/dev_list_cache.h"
#include "api/export_guard.h"
#include "api/proxy_driver.h"
#include "discovery/hid_find.h"
#include "discovery/record_text.h"
#include "log/msg.h"

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

/// Takes a list that the host was to get back, unless it is handed over.
class CListGuard {
 public:
  explicit CListGuard(HidDevRecord** ppList) : m_ppList(ppList) {}
  ~CListGuard() {
    if (m_ppList == nullptr) return;
    std::free(*m_ppList);
    *m_ppList = nullptr;
  }
  CListGuard(const CListGuard&) = delete;
  CListGuard& operator=(const CListGuard&) = delete;
  void HandOver() { m_ppList = nullptr; }

 private:
  HidDevRecord** m_ppList;
};

/// What both listings share; `list` asks the finder and `logFilter` tells what for.
template <class LogFilter, class List>
std::uint8_t ListDevices(const char* tag, HidDevRecord** ppList, std::uint32_t* pCount,
                         const LogFilter& logFilter, const List& list) {
  CMsg& msg = CMsg::Instance();
  CDevListCache& cache = CDevListCache::Instance();
  cache.Clear();
  msg.Log(1, tag, "Enter --->\n");
  logFilter(tag);
  if (ppList == nullptr || pCount == nullptr) {
    msg.Log(3, tag, "Invalidate parameter\n");
    return 0;
  }
  CHidFind finder;
  std::optional<CProxySession> session(std::in_place);
  const bool isListed = list(finder) != 0;
  CListGuard guard(isListed ? ppList : nullptr);
  if (isListed) {
    LogRecords(tag, *ppList, *pCount);
  } else {
    msg.Log(3, tag, "List Hid Device Fail\n");
  }
  session.reset();
  cache.Store(isListed ? *ppList : nullptr, *pCount);
  msg.Log(1, tag, "<--- Exit\n");
  guard.HandOver();
  return isListed && *pCount != 0 ? 1 : 0;
}

/// The frame of both: a listing that is refused leaves its outputs as one that finds nothing.
template <class Body>
std::uint8_t RunListing(const char* tag, std::uint32_t* pCount, const Body& body) {
  return RunExport(tag, L"List Hid Device", std::uint8_t{0}, [&]() -> std::uint8_t {
    const CCallGate::CPass pass(TakeOver);
    if (pass) return body();
    LogUpdateIsRunning(tag);
    if (pCount != nullptr) *pCount = 0;
    return 0;
  });
}

}  // namespace

uint8_t QZ_ListAllHidDev(HidDevRecord** ppList, uint32_t* pCount) {
  constexpr const char* kTag = "QZ_ListAllHidDev";
  return RunListing(kTag, pCount, [&] {
    return ListDevices(
        kTag, ppList, pCount, [](const char*) {},
        [&](CHidFind& finder) { return finder.ListHidDevice(ppList, pCount); });
  });
}

uint8_t QZ_ListAllHidDevByVIDPID(uint32_t wVID, uint32_t wPID, HidDevRecord** ppList,
                                 uint32_t* pCount) {
  constexpr const char* kTag = "QZ_ListAllHidDevByVIDPID";
  return RunListing(kTag, pCount, [&] {
    return ListDevices(
        kTag, ppList, pCount,
        [&](const char* tag) {
          CMsg::Instance().Log(0, tag, "Filter VID:%04x,PID:%04x\n", wVID, wPID);
        },
        [&](CHidFind& finder) { return finder.ListHidDevice(wVID, wPID, ppList, pCount); });
  });
}

void QZ_FreeDevList(HidDevRecord* pList) {
  constexpr const char* kTag = "QZ_FreeDevList";
  RunExport(kTag, L"QZ FreeAllDevice", 0, [&] {
    CMsg::Instance().Log(1, kTag, "In QZ_FreeAllDevice,Free Memory\n");
    std::free(pList);
    return 0;
  });
}
