// Whose turn it is to deliver.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

namespace qzhid {

/// A lock that its owner may take again, as std::recursive_mutex is one, for std::lock_guard.
/// Unlike that, it can be given back in a forked child whose parent has the owner.
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
