// What the library does as threads start and the process ends.
#include "QzHidAPI.h"
#include "api/export_guard.h"
#include "log/msg.h"

namespace qzhid::platform {

void OnThreadAttach() noexcept { QZ_ConfigLog(1, 0); }

void OnProcessDetach() noexcept {
  RunExport("OnProcessDetach", L"Create Log", 0, [] {
    CMsg::Instance().ClearResponders();
    return 0;
  });
}

}  // namespace qzhid::platform
