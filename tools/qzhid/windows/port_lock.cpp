#include "qzhid/port_lock.h"

#include <windows.h>

namespace qzhid {

struct PortLock::Data {
  HANDLE mutex = nullptr;
};

PortLock::PortLock(const std::string& name) : data_(std::make_unique<Data>()) {
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
    data_->mutex = mutex;
  } else {
    CloseHandle(mutex);
  }
}

PortLock::~PortLock() {
  if (data_->mutex == nullptr) return;
  ReleaseMutex(data_->mutex);
  CloseHandle(data_->mutex);
}

}  // namespace qzhid
