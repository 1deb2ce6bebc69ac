// The files and events that a host holds open, and the virtual devices that they lead to.
//
// The path of a HID interface is the path of a real file, so that a host's handle is a real one.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <map>
#include <mutex>
#include <string>

#include "platform/platform.h"

namespace doubles {

/// What a service of the system returns: whether it worked, and if not, the code as the last error.
inline bool Answer(const qzhid::platform::Status& status) {
  if (!status) SetLastError(status.code);
  return status.ok;
}

/// Any thread may use it.
class OpenFiles {
 public:
  static OpenFiles& Instance();

  /// The file in place of an interface of the machine; it is made if need be.
  std::wstring FileOf(const std::wstring& interfacePath);

  /// The interface that the path of such a file means; empty when it is none.
  std::wstring InterfaceOf(const std::wstring& filePath) const;

  /// Remembers what a handle leads to, until Forget.
  void Remember(HANDLE handle, const std::wstring& interfacePath,
                qzhid::platform::HidDevice device);
  void Remember(HANDLE handle, qzhid::platform::Event event);
  void Forget(HANDLE handle);

  /// The device of a handle; empty when it is no handle of a device. Files that a host opened and
  /// closed without us are recognised by their paths.
  const qzhid::platform::HidDevice& DeviceOf(HANDLE handle);

 private:
  OpenFiles();

  std::wstring folder_;  // ends in a separator
  std::mutex mutex_;
  struct OpenDevice {
    std::wstring interfacePath;
    qzhid::platform::HidDevice device;
  };
  std::map<HANDLE, OpenDevice> devices_;
  std::map<HANDLE, qzhid::platform::Event> events_;
};

}  // namespace doubles
