// The exception with which a thread unwinds that is being ended.
#pragma once

#if __has_include(<bits/cxxabi_forced.h>)
#include <cxxabi.h>
#endif

namespace qzhid::platform {

/// Unwinds a thread that was cancelled, or that ended itself in a callback. Code that catches it
/// must rethrow it, or the process ends.
#if __has_include(<bits/cxxabi_forced.h>)
using ForcedUnwinding = abi::__forced_unwind;
#else
class ForcedUnwinding {};  // never thrown
#endif

/// In a handler for everything: whether the thread unwinds that way, where that has no type. Asked
/// first in the handler, which must rethrow then.
#if defined(QZ_PORTABLE)
bool IsThreadEnding() noexcept;
#else
constexpr bool IsThreadEnding() noexcept { return false; }
#endif

// For functions that catch it. It has no object, which a sanitizer takes for a null reference.
#if defined(__GNUC__)
#define QZ_CATCHES_FORCED_UNWINDING __attribute__((no_sanitize("null")))
#else
#define QZ_CATCHES_FORCED_UNWINDING
#endif

}  // namespace qzhid::platform
