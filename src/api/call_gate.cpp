#include "api/call_gate.h"

#include <cstddef>
#include <new>

namespace qzhid {

CCallGate& CCallGate::Instance() {
  // Never destroyed, because threads may still be waiting in it when the process ends; its room
  // goes with the library.
  alignas(CCallGate) static std::byte room[sizeof(CCallGate)];
  static CCallGate& instance = *new (room) CCallGate;
  return instance;
}

bool CCallGate::Enter(ConnectionUse use) {
  std::unique_lock<std::mutex> lock(m_Lock);
  if (m_nCalls != 0 && m_Owner == std::this_thread::get_id()) {
    if (m_bProtected && use != ConnectionUse::Share) return false;
  } else {
    m_Free.wait(lock, [this] { return m_nCalls == 0 || m_bUpdating; });
    if (m_nCalls != 0) return false;
    m_Owner = std::this_thread::get_id();
    m_bUpdating = use == ConnectionUse::Update;
  }
  if (use == ConnectionUse::Update) m_bProtected = true;
  ++m_nCalls;
  return true;
}

void CCallGate::Leave(ConnectionUse use) {
  const std::lock_guard<std::mutex> lock(m_Lock);
  if (use == ConnectionUse::Update) m_bProtected = false;
  if (--m_nCalls != 0) return;
  m_bUpdating = false;
  m_Free.notify_all();
}

void CCallGate::EndProtection() {
  const std::lock_guard<std::mutex> lock(m_Lock);
  m_bProtected = false;
}

}  // namespace qzhid
