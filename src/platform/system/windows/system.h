// The Windows headers, without what the library does not use, and what the files here share.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include "platform/platform.h"

namespace qzhid::platform {

/// The failure that the system recorded last for this thread.
inline Status LastFailure() { return Status::Failure(GetLastError()); }

/// The failure of a call on an empty handle.
inline Status InvalidHandle() { return Status::Failure(ERROR_INVALID_HANDLE); }

/// A module's function of that name, null when there is no such module or function.
template <class Function>
Function FindFunction(HMODULE module, const char* name) {
  if (module == nullptr) return nullptr;
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

}  // namespace qzhid::platform
