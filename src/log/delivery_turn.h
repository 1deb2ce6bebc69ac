// The lock of a delivery.
#pragma once

#include <atomic>
#include <thread>

namespace qzhid {

/// A lock that its owner can take again, like std::recursive_mutex, for std::lock_guard. Unlike
/// that, it can be released in a forked child when its owner is a thread of the parent.
class CDeliveryTurn {
 public:
  CDeliveryTurn() = default;
  CDeliveryTurn(const CDeliveryTurn&) = delete;
  CDeliveryTurn& operator=(const CDeliveryTurn&) = delete;

  void lock();
  void unlock();

  /// In the child after a fork of the process, on the thread that forked.
  void EndFork() noexcept;

 private:
  enum : int { kFree, kTaken, kAwaited };  // kAwaited: and others may sleep until it is free

  std::atomic<int> m_nState{kFree};
  std::atomic<std::thread::id> m_Owner{};
  unsigned m_nDepth = 0;  // of the owner
};

}  // namespace qzhid
