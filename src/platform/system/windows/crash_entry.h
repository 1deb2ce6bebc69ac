// The address that is installed as the crash handler: a few instructions in memory of their own, so
// that they can be called after the library has been unloaded. A filter that somebody installed
// later may do that.
#pragma once

#include "platform/system/windows/system.h"

namespace qzhid::platform {

using ExceptionFilter = LPTOP_LEVEL_EXCEPTION_FILTER;

/// Makes an entry that leads to the filter; null on a processor that there is no code for, and
/// where the system makes no memory executable.
ExceptionFilter MakeCrashEntry(ExceptionFilter filter) noexcept;

/// From now on the entry leads to that filter, or answers EXCEPTION_CONTINUE_SEARCH by itself when
/// it is null.
void RetireCrashEntry(ExceptionFilter entry, ExceptionFilter filter) noexcept;

/// Releases the memory of an entry that nobody knows.
void FreeCrashEntry(ExceptionFilter entry) noexcept;

}  // namespace qzhid::platform
