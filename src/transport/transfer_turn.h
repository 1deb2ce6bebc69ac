// Whose turn it is to exchange reports with a device.
#pragma once

#include <atomic>

namespace qzhid {

/// For std::unique_lock. It is tried and never waited for, so it costs one exchange of a flag where
/// a mutex costs two and a call for each.
class CTransferTurn {
 public:
  bool try_lock() noexcept { return !m_bTaken.test_and_set(std::memory_order_acquire); }
  void unlock() noexcept { m_bTaken.clear(std::memory_order_release); }

 private:
  std::atomic_flag m_bTaken;
};

}  // namespace qzhid
