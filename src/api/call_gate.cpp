#include "api/call_gate.h"

#include <utility>

namespace qzhid {

using enum CCallGate::Entry;

CCallGate& CCallGate::Instance() {
  static constinit platform::CProcessObject<CCallGate> instance;
  return instance.Get();
}

bool CCallGate::IsOwn() const { return m_nCalls != 0 && m_Owner == std::this_thread::get_id(); }

bool CCallGate::IsRefusing() const { return m_Phase == Phase::Protected || m_Phase == Phase::Done; }

CCallGate::Entry CCallGate::Enter(ConnectionUse use, void* closing) {
  std::unique_lock<std::mutex> lock(m_Lock);
  if (IsOwn()) return EnterAgain(use);
  const bool isSharing = use == ConnectionUse::Share;
  // A call that wants the connection for itself goes before those that come later.
  if (!isSharing) ++m_nWaiting;
  m_Free.wait(lock, [&] {
    return IsRefusing() || (m_nCalls == 0 && (isSharing ? m_nWaiting == 0 : m_nShared == 0));
  });
  if (!isSharing) --m_nWaiting;
  if (IsRefusing()) {
    if (use != ConnectionUse::Close || m_Phase != Phase::Done) return Refused;
    m_Deferred.push_back(closing);
    return Deferred;
  }
  if (isSharing) {
    ++m_nShared;
    return Shared;
  }
  m_nCalls = 1;
  m_Owner = std::this_thread::get_id();
  if (use == ConnectionUse::Update) {
    m_Phase = Phase::Protected;
    m_Free.notify_all();  // those that wait are refused now
  }
  return Owned;
}

CCallGate::Entry CCallGate::EnterAgain(ConnectionUse use) {
  const bool isTakingOver = use == ConnectionUse::TakeOver || use == ConnectionUse::Update;
  if (m_Phase == Phase::Protected && isTakingOver) return Refused;
  if (use == ConnectionUse::Update) m_Phase = Phase::Protected;
  ++m_nCalls;
  return Owned;
}

void CCallGate::Leave(ConnectionUse use, Entry entry) {
  const std::lock_guard<std::mutex> lock(m_Lock);
  if (entry == Shared) {
    --m_nShared;
  } else if (--m_nCalls == 0) {
    m_Phase = Phase::None;
  } else if (use == ConnectionUse::Update) {
    m_Phase = Phase::Done;  // it was inside another one
  }
  m_Free.notify_all();
}

void CCallGate::EndProtection() {
  const std::lock_guard<std::mutex> lock(m_Lock);
  m_Phase = Phase::Done;
}

void* CCallGate::TakeDeferredClose() noexcept {
  const std::lock_guard<std::mutex> lock(m_Lock);
  if (m_nCalls > 1) return nullptr;  // the outer update continues
  if (m_Deferred.empty()) {
    m_Phase = Phase::Returning;
    return nullptr;
  }
  void* const handle = m_Deferred.front();
  m_Deferred.erase(m_Deferred.begin());
  return handle;
}

bool CCallGate::DropOtherThreads() noexcept {
  const bool isOwn = IsOwn();
  const bool wereThere = m_nShared != 0 || (m_nCalls != 0 && !isOwn);
  m_nShared = m_nWaiting = 0;
  new (&m_Free) std::condition_variable;
  if (!isOwn) {
    m_nCalls = 0;
    m_Phase = Phase::None;
  }
  return wereThere;
}

}  // namespace qzhid
