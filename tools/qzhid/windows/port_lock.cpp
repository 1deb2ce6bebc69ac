#include "qzhid/port_lock.h"

#include <windows.h>

namespace qzhid {

PortLock::PortLock(const std::string& name) {
  // All users have access, in every session.
  SECURITY_DESCRIPTOR everyone{};
  InitializeSecurityDescriptor(&everyone, SECURITY_DESCRIPTOR_REVISION);
  SetSecurityDescriptorDacl(&everyone, TRUE, nullptr, FALSE);
  SECURITY_ATTRIBUTES access{sizeof(SECURITY_ATTRIBUTES), &everyone, FALSE};
  HANDLE mutex = CreateMutexA(&access, FALSE, ("Global\\" + name).c_str());
  if (mutex == nullptr) {
    // Another user's, who does not share it after all; otherwise there are no locks here.
    isHeld_ = GetLastError() != ERROR_ACCESS_DENIED;
    return;
  }
  const DWORD result = WaitForSingleObject(mutex, 0);
  isHeld_ = result == WAIT_OBJECT_0 || result == WAIT_ABANDONED;
  if (isHeld_) {
    handle_ = reinterpret_cast<std::intptr_t>(mutex);
  } else {
    CloseHandle(mutex);
  }
}

PortLock::~PortLock() {
  if (handle_ == -1) return;
  HANDLE mutex = reinterpret_cast<HANDLE>(handle_);
  ReleaseMutex(mutex);
  CloseHandle(mutex);
}

}  // namespace qzhid
