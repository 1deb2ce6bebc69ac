// Stacks for signal handlers, so that they also run when a thread's own stack has overflowed.
// CoverThread gives a thread its stack.
#pragma once

namespace qzhid::platform {

/// From now on CoverThread gives threads stacks. One thread at a time can call this.
void StartSignalStacks() noexcept;

/// Ends that and releases the calling thread's stack. Those of other threads stay, because the
/// kernel may use them as long as the threads live.
void EndSignalStacks() noexcept;

}  // namespace qzhid::platform
