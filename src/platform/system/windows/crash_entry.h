// The address that is installed as the crash handler: a few instructions in memory of their own, so
// that a filter that was installed later can call them after the library has been unloaded.
#pragma once

#include "platform/system/windows/system.h"

namespace qzhid::platform {

using ExceptionFilter = LPTOP_LEVEL_EXCEPTION_FILTER;

/// Makes an entry that calls the filter; null on a processor for which there is no code, and when
/// the system makes no memory executable.
ExceptionFilter MakeCrashEntry(ExceptionFilter filter) noexcept;

/// From now on the entry calls that filter, or returns EXCEPTION_CONTINUE_SEARCH itself when the
/// filter is null.
void RetireCrashEntry(ExceptionFilter entry, ExceptionFilter filter) noexcept;

/// Releases the memory of an entry that is not installed.
void FreeCrashEntry(ExceptionFilter entry) noexcept;

}  // namespace qzhid::platform
