#include "platform/virtual/machine.h"

#include "platform/backend_locks.h"
#include "platform/process_object.h"

namespace qzhid::platform {

namespace {

struct MachineEnd {
  MachineEnd() = default;
  ~MachineEnd() { virtualhub::UninstallWorld(); }
  MachineEnd(const MachineEnd&) = delete;
  MachineEnd& operator=(const MachineEnd&) = delete;
};

}  // namespace

std::shared_ptr<virtualhub::World> HoldMachine() {
  static constinit CProcessObject<MachineEnd> end;
  end.Get();
  return virtualhub::HoldCurrentWorld();
}

void LockBackend() { virtualhub::LockCurrentWorld(); }
void UnlockBackend() { virtualhub::UnlockCurrentWorld(); }

}  // namespace qzhid::platform
