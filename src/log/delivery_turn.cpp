#include "log/delivery_turn.h"

#include <new>

namespace qzhid {

void CDeliveryTurn::lock() {
  const auto self = std::this_thread::get_id();
  std::unique_lock<std::mutex> lock(m_Lock);
  m_Free.wait(lock, [&] { return m_nDepth == 0 || m_Owner == self; });
  m_Owner = self;
  ++m_nDepth;
}

void CDeliveryTurn::unlock() {
  const std::lock_guard<std::mutex> lock(m_Lock);
  if (--m_nDepth == 0) m_Free.notify_one();
}

void CDeliveryTurn::EndFork(bool isChild) noexcept {
  if (isChild) {
    new (&m_Free) std::condition_variable;  // no thread of the child waits
    if (m_Owner != std::this_thread::get_id()) m_nDepth = 0;
  }
  m_Lock.unlock();
}

}  // namespace qzhid
