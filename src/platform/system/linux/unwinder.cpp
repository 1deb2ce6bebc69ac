// Which unwinder a portable build uses. There is one in it, but the system's unwinds exceptions of
// the host and threads that end, also through functions of the library, and what it knows about
// them means nothing to another one. So the library uses the system's, too. Only where there is
// none, it uses its own.
#include <dlfcn.h>
#include <unwind.h>

#include "platform/forced_unwinding.h"

// Those of own_unwinder.c.
extern "C" {
decltype(_Unwind_RaiseException) OwnRaiseException;
decltype(_Unwind_Resume) OwnResume;
decltype(_Unwind_GetLanguageSpecificData) OwnGetLanguageSpecificData;
decltype(_Unwind_GetRegionStart) OwnGetRegionStart;
decltype(_Unwind_GetIP) OwnGetIP;
decltype(_Unwind_SetIP) OwnSetIP;
decltype(_Unwind_SetGR) OwnSetGR;
}

namespace qzhid::platform {

namespace {

struct CUnwinder {
  decltype(&_Unwind_RaiseException) RaiseException;
  decltype(&_Unwind_Resume) Resume;
  decltype(&_Unwind_GetLanguageSpecificData) GetLanguageSpecificData;
  decltype(&_Unwind_GetRegionStart) GetRegionStart;
  decltype(&_Unwind_GetIP) GetIP;
  decltype(&_Unwind_SetIP) SetIP;
  decltype(&_Unwind_SetGR) SetGR;
};
constinit CUnwinder g_Unwinder{OwnRaiseException, OwnResume, OwnGetLanguageSpecificData,
                               OwnGetRegionStart, OwnGetIP,  OwnSetIP,
                               OwnSetGR};
thread_local bool t_bForced = false;

template <class Function>
bool Find(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
  return function != nullptr;
}

/// Before anything is thrown. The C library loads the same file when a thread ends.
__attribute__((constructor(101))) void UseTheSystems() {
  void* const library = dlopen("libgcc_s.so.1", RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) return;
  CUnwinder found{};
  // This function also throws. What unwinds a thread that ends cannot be rethrown by another one.
  if (Find(library, "_Unwind_Resume_or_Rethrow", found.RaiseException) &&
      Find(library, "_Unwind_Resume", found.Resume) &&
      Find(library, "_Unwind_GetLanguageSpecificData", found.GetLanguageSpecificData) &&
      Find(library, "_Unwind_GetRegionStart", found.GetRegionStart) &&
      Find(library, "_Unwind_GetIP", found.GetIP) && Find(library, "_Unwind_SetIP", found.SetIP) &&
      Find(library, "_Unwind_SetGR", found.SetGR)) {
    g_Unwinder = found;
  }
}

}  // namespace

bool IsThreadEnding() noexcept { return t_bForced; }

}  // namespace qzhid::platform

// What the toolchain's C++ library calls.
using qzhid::platform::g_Unwinder;

_Unwind_Reason_Code _Unwind_RaiseException(_Unwind_Exception* exception) {
  return g_Unwinder.RaiseException(exception);
}
void _Unwind_Resume(_Unwind_Exception* exception) { g_Unwinder.Resume(exception); }
void _Unwind_DeleteException(_Unwind_Exception* exception) {
  if (exception->exception_cleanup == nullptr) return;
  exception->exception_cleanup(_URC_FOREIGN_EXCEPTION_CAUGHT, exception);
}
void* _Unwind_GetLanguageSpecificData(_Unwind_Context* context) {
  return g_Unwinder.GetLanguageSpecificData(context);
}
_Unwind_Ptr _Unwind_GetRegionStart(_Unwind_Context* context) {
  return g_Unwinder.GetRegionStart(context);
}
_Unwind_Word _Unwind_GetIP(_Unwind_Context* context) { return g_Unwinder.GetIP(context); }
void _Unwind_SetIP(_Unwind_Context* context, _Unwind_Word value) {
  g_Unwinder.SetIP(context, value);
}
/// Also how a handler gets the exception. One that unwinds a thread has a function that says where
/// to stop.
void _Unwind_SetGR(_Unwind_Context* context, int index, _Unwind_Word value) {
  if (index == __builtin_eh_return_data_regno(0)) {
    qzhid::platform::t_bForced = reinterpret_cast<_Unwind_Exception*>(value)->private_1 != 0;
  }
  g_Unwinder.SetGR(context, index, value);
}
