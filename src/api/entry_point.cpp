// What the library does as threads start, the process ends or forks.
#include "QzHidAPI.h"
#include "api/call_gate.h"
#include "api/dev_list_cache.h"
#include "api/export_frame.h"
#include "api/handle_table.h"
#include "api/proxy_driver.h"
#include "log/log_control.h"
#include "log/msg.h"

namespace qzhid::platform {

void OnThreadAttach() noexcept { QZ_ConfigLog(1, 0); }

void OnProcessDetach() noexcept {
  // cppcheck-suppress throwInNoexceptFunction ; no exception leaves the frame
  Run({"OnProcessDetach", L"Create Log"}, 0, [](const char*) {
    CMsg::TryClearResponders();
    return 0;
  });
}

void OnForkBegin() noexcept {
  CCallGate::Instance().ForkLock().lock();
  CHandleTable::Instance().ForkLock().lock();
  CLogControl::Instance().ForkLock().lock();
  CMsg::Instance().BeginFork();
}

void OnForkEnd(bool isChild) noexcept {
  CMsg::Instance().EndFork(isChild);
  CLogControl::Instance().ForkLock().unlock();
  CHandleTable::Instance().ForkLock().unlock();
  CCallGate& gate = CCallGate::Instance();
  gate.ForkLock().unlock();
  if (!isChild || !gate.DropOtherThreads()) return;
  // Another thread was inside a call, and what it worked on may be in any state.
  CDevListCache::Instance().Abandon();
  CProxyDriver::Instance().Abandon();
}

}  // namespace qzhid::platform
