#include "log/responder_list.h"

#include <algorithm>
#include <utility>

namespace qzhid {

void CResponderList::Add(IResponder* responder) {
  auto added = std::make_shared<Registration>(*responder, responder->Takes());
  auto next = std::make_shared<Receivers>();
  std::shared_ptr<const Receivers> old;  // destroyed after the lock is released
  const std::lock_guard<std::mutex> lock(m_Lock);
  if (m_pCurrent) {
    std::copy_if(m_pCurrent->begin(), m_pCurrent->end(), std::back_inserter(*next),
                 [](const auto& entry) { return entry->isRegistered.load(); });
  }
  next->push_back(std::move(added));
  old = std::exchange(m_pCurrent, std::move(next));
  UpdateTakes();
}

void CResponderList::Remove(const IResponder* responder) {
  const std::lock_guard<std::mutex> lock(m_Lock);
  if (!m_pCurrent) return;
  const auto found = std::find_if(m_pCurrent->begin(), m_pCurrent->end(), [&](const auto& entry) {
    return &entry->responder == responder && entry->isRegistered;
  });
  if (found != m_pCurrent->end()) (*found)->isRegistered = false;
  UpdateTakes();
}

void CResponderList::Clear() noexcept {
  const std::lock_guard<std::mutex> lock(m_Lock);
  ClearLocked();
}

void CResponderList::TryClear() noexcept {
  const std::unique_lock<std::mutex> lock(m_Lock, std::try_to_lock);
  if (lock) ClearLocked();
}

void CResponderList::ClearLocked() noexcept {
  if (!m_pCurrent) return;
  for (const auto& entry : *m_pCurrent) entry->isRegistered = false;
  m_pCurrent.reset();
  m_nTakes = 0;
}

void CResponderList::UpdateTakes() noexcept {
  unsigned all = 0;
  for (const auto& entry : *m_pCurrent) {
    if (entry->isRegistered) all |= entry->takes;
  }
  m_nTakes = all;
}

std::shared_ptr<const CResponderList::Receivers> CResponderList::Get() {
  const std::lock_guard<std::mutex> lock(m_Lock);
  return m_pCurrent;
}

}  // namespace qzhid
