// The locks of a backend around a fork of the process.
#pragma once

namespace qzhid::platform {

/// Takes all of them, so that no other thread has one when the process is forked.
void LockBackend();
/// Releases them, in the parent and in the child.
void UnlockBackend();

}  // namespace qzhid::platform
