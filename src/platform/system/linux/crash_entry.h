// The address that is installed for fatal signals: a few instructions in memory of their own, so
// that they can be called after the library has been unloaded. A handler that somebody installed
// later may do that.
#pragma once

#include <csignal>

namespace qzhid::platform {

using SignalHandler = void (*)(int, siginfo_t*, void*);

/// Makes an entry that leads to the handler; null on a processor that there is no code for, and
/// where the system makes no memory executable.
SignalHandler MakeCrashEntry(SignalHandler handler) noexcept;

/// What an entry does from now on, without the library: it installs the signal's action among
/// `actions`, which has one for each number below kCrashEntrySignals, and lets the signal come
/// again.
void RetireCrashEntry(SignalHandler entry, const struct sigaction* actions) noexcept;

/// Releases the memory of an entry that nobody knows.
void FreeCrashEntry(SignalHandler entry) noexcept;

inline constexpr int kCrashEntrySignals = 32;

}  // namespace qzhid::platform
