// Kernel services that act on the machine: its devices, its clock, its debugger and its handles.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include "platform/platform.h"

namespace platform = qzhid::platform;

/// Lets the module's kernel calls go to the machine, as far as they are about devices or time.
void UseKernelDoubles(HMODULE module);

/// The device that was opened with that handle.
const platform::HidDevice& DeviceOf(HANDLE handle);

/// What a service of the system returns: whether it worked, and if not, the code as the last error.
inline bool Answer(const platform::Status& status) {
  if (!status) SetLastError(status.code);
  return status.ok;
}
