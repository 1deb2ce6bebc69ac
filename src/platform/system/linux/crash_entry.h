// The address that is installed for fatal signals: a few instructions in memory of their own, so
// that a handler that was installed later can call them after the library has been unloaded.
#pragma once

#include <csignal>

namespace qzhid::platform {

using SignalHandler = void (*)(int, siginfo_t*, void*);

/// Makes an entry that calls the handler; null on a processor for which there is no code, and when
/// the system makes no memory executable.
SignalHandler MakeCrashEntry(SignalHandler handler) noexcept;

/// What an entry does from now on, without the library: it installs the signal's action among
/// `actions`, which has one for each number below kCrashEntrySignals, and lets the signal come
/// again.
void RetireCrashEntry(SignalHandler entry, const struct sigaction* actions) noexcept;

/// Releases the memory of an entry that is not installed.
void FreeCrashEntry(SignalHandler entry) noexcept;

inline constexpr int kCrashEntrySignals = 32;

}  // namespace qzhid::platform
