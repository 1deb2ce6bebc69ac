// The lock of a delivery.
#pragma once

#include <condition_variable>
#include <mutex>
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

  /// Around a fork of the process, on the thread that forks.
  void BeginFork() { m_Lock.lock(); }
  void EndFork(bool isChild) noexcept;

 private:
  std::mutex m_Lock;  // guards all below
  std::condition_variable m_Free;
  std::thread::id m_Owner;
  unsigned m_nDepth = 0;
};

}  // namespace qzhid
