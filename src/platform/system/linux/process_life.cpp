// How the library takes part in the life of its process: exit, unloading and forks.
#include <pthread.h>

#include "platform/platform.h"
#include "platform/process_object.h"
#include "platform/system/backend_locks.h"

namespace qzhid::platform {

namespace {

void BeginFork() {
  OnForkBegin();
  LockBackend();
  MakingLock().lock();
}

void EndFork(bool isChild) {
  MakingLock().unlock();
  UnlockBackend();
  OnForkEnd(isChild);
}

void EndForkInParent() { EndFork(false); }
void EndForkInChild() { EndFork(true); }

/// The end of a process destroys objects like this one before it finishes its libraries; the
/// unloading of a library does it the other way round.
class CProcessEnd {
 public:
  CProcessEnd() { pthread_atfork(BeginFork, EndForkInParent, EndForkInChild); }
  ~CProcessEnd() { s_bBegun = true; }
  CProcessEnd(const CProcessEnd&) = delete;
  CProcessEnd& operator=(const CProcessEnd&) = delete;

  static bool HasBegun() { return s_bBegun; }

 private:
  static constinit inline bool s_bBegun = false;
};
const CProcessEnd g_ProcessEnd;

// Threads may be inside the library to the end of the process, so nothing is taken from them then.
__attribute__((destructor)) void FinishLibrary() {
  if (!CProcessEnd::HasBegun()) DestroyProcessObjects();
}

}  // namespace

}  // namespace qzhid::platform
