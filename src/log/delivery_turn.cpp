#include "log/delivery_turn.h"

namespace qzhid {

void CDeliveryTurn::lock() {
  const auto self = std::this_thread::get_id();
  if (m_Owner != self) {
    int found = kFree;
    if (!m_nState.compare_exchange_strong(found, kTaken)) {
      while (m_nState.exchange(kAwaited) != kFree) m_nState.wait(kAwaited);
    }
    m_Owner = self;
  }
  ++m_nDepth;
}

void CDeliveryTurn::unlock() {
  if (--m_nDepth != 0) return;
  m_Owner = std::thread::id();
  if (m_nState.exchange(kFree) == kAwaited) m_nState.notify_one();
}

void CDeliveryTurn::EndFork() noexcept {
  if (m_Owner == std::this_thread::get_id()) return;
  m_Owner = std::thread::id();  // the owner, if there was one, is not in the child
  m_nDepth = 0;
  m_nState = kFree;
}

}  // namespace qzhid
