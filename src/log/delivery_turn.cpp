#include "log/delivery_turn.h"

#include <new>

namespace qzhid {

void CDeliveryTurn::lock() {
  const auto self = std::this_thread::get_id();
  if (m_Owner != self) {
    m_Lock.lock();
    m_Owner = self;
  }
  ++m_nDepth;
}

void CDeliveryTurn::unlock() {
  if (--m_nDepth != 0) return;
  m_Owner = std::thread::id();
  m_Lock.unlock();
}

void CDeliveryTurn::EndFork() noexcept {
  if (m_Owner == std::this_thread::get_id()) return;
  new (&m_Lock) std::mutex;  // its owner, if there was one, is not in the child
  m_Owner = std::thread::id();
  m_nDepth = 0;
}

}  // namespace qzhid
