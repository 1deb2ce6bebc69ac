#include "platform/virtual/machine.h"

#include "platform/process_object.h"
#include "platform/system/backend_locks.h"

namespace qzhid::platform {

namespace {

struct MachineEnd {
  MachineEnd() = default;
  ~MachineEnd() { virtualhub::UninstallMachine(); }
  MachineEnd(const MachineEnd&) = delete;
  MachineEnd& operator=(const MachineEnd&) = delete;
};

}  // namespace

std::shared_ptr<virtualhub::Machine> HoldMachine() {
  static constinit CProcessObject<MachineEnd> end;
  end.Get();
  return virtualhub::HoldCurrentMachine();
}

void LockBackend() { virtualhub::LockCurrentMachine(); }
void UnlockBackend() { virtualhub::UnlockCurrentMachine(); }

}  // namespace qzhid::platform
