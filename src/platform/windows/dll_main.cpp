// Where the system tells the library of processes and threads.
#include "platform/windows/system.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void* processEnds) {
  if (reason == DLL_THREAD_ATTACH) qzhid::platform::OnThreadAttach();
  if (reason == DLL_PROCESS_DETACH) qzhid::platform::OnProcessDetach();
  if (reason == DLL_PROCESS_DETACH && processEnds == nullptr) {
    qzhid::platform::RemoveCrashHandler();
  }
  return TRUE;
}
