// Where the system informs the library of processes and threads.
#include "platform/process_object.h"
#include "platform/system/windows/system.h"

using namespace qzhid::platform;

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void* processEnd) {
  if (reason == DLL_THREAD_ATTACH) OnThreadAttach();
  if (reason == DLL_PROCESS_DETACH) {
    OnProcessDetach();
    if (processEnd != nullptr) return TRUE;
    RemoveCrashHandler();
    DestroyProcessObjects();
  }
  return TRUE;
}
