// Stacks for signal handlers, so that they also run when a thread's own stack has overflowed.
// Threads are given theirs by CoverThread.
#pragma once

namespace qzhid::platform {

/// From now on threads are given stacks. To be called by one thread at a time.
void StartSignalStacks() noexcept;

/// Ends that and takes the calling thread's stack back. Those of other threads stay, because the
/// kernel may use them as long as the threads live.
void EndSignalStacks() noexcept;

}  // namespace qzhid::platform
