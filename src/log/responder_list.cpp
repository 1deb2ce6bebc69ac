#include "log/responder_list.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace qzhid {

struct CResponderList::Snapshot {
  Receivers receivers;
  unsigned takes = 0;         // all kinds that any of them takes
  Snapshot* pNext = nullptr;  // in the list of retired snapshots
};

namespace {

auto Find(const CResponderList::Receivers& receivers, const IResponder* responder) {
  return std::find_if(receivers.begin(), receivers.end(), [&](const CResponderList::Entry& entry) {
    return entry.responder == responder;
  });
}

}  // namespace

// A reader counts itself before it loads the current snapshot. So once a retired snapshot was seen
// and the count was 0 after that, nobody reads it any more and nobody can find it again.

CResponderList::CPin::CPin(CResponderList& list) noexcept : m_List(list) {
  m_List.m_nPins.fetch_add(1);
  m_pSnapshot = m_List.m_pCurrent.load();
}

CResponderList::CPin::~CPin() {
  m_List.m_nPins.fetch_sub(1);
  m_List.FreeRetired();
}

const CResponderList::Receivers& CResponderList::CPin::Get() const noexcept {
  static const Receivers empty;
  return m_pSnapshot != nullptr ? m_pSnapshot->receivers : empty;
}

bool CResponderList::CPin::IsRegistered(const IResponder* responder) const noexcept {
  if (m_List.m_pCurrent.load() == m_pSnapshot) return true;
  const CPin now(m_List);
  return Find(now.Get(), responder) != now.Get().end();
}

bool CResponderList::CPin::Takes(unsigned kind) const noexcept {
  return m_pSnapshot != nullptr && (m_pSnapshot->takes & kind) != 0;
}

bool CResponderList::Takes(unsigned kind) noexcept {
  return m_pCurrent.load() != nullptr && CPin(*this).Takes(kind);
}

CResponderList::~CResponderList() {
  Clear();
  FreeRetired();
  delete m_pSpare.load();
}

void CResponderList::Add(IResponder* responder) {
  for (bool done = false; !done;) {
    const CPin pin(*this);
    const Receivers& now = pin.Get();
    auto next = std::make_unique<Snapshot>();
    next->receivers.reserve(now.size() + 1);
    next->receivers = now;
    next->receivers.push_back({responder, responder->Takes()});
    auto spare = std::make_unique<Snapshot>();
    spare->receivers.reserve(now.size());
    done = TryReplace(pin, std::move(next));
    if (done) spare.reset(m_pSpare.exchange(spare.release()));
  }
}

void CResponderList::Remove(const IResponder* responder) {
  for (bool done = false; !done;) {
    const CPin pin(*this);
    const Receivers& now = pin.Get();
    const auto found = Find(now, responder);
    if (found == now.end()) return;
    std::unique_ptr<Snapshot> next;
    if (now.size() > 1) {
      next = TakeRoom(now.size() - 1);
      next->receivers.assign(now.begin(), found);
      next->receivers.insert(next->receivers.end(), found + 1, now.end());
    }
    done = TryReplace(pin, std::move(next));
  }
}

void CResponderList::Clear() noexcept { Retire(m_pCurrent.exchange(nullptr)); }

std::unique_ptr<CResponderList::Snapshot> CResponderList::TakeRoom(std::size_t receivers) {
  try {
    auto room = std::make_unique<Snapshot>();
    room->receivers.reserve(receivers);
    return room;
  } catch (const std::bad_alloc&) {
    std::unique_ptr<Snapshot> spare(m_pSpare.exchange(nullptr));
    if (!spare || spare->receivers.capacity() < receivers) throw;
    return spare;
  }
}

bool CResponderList::TryReplace(const CPin& pin, std::unique_ptr<Snapshot> next) {
  if (next) {
    for (const Entry& entry : next->receivers) next->takes |= entry.takes;
  }
  Snapshot* expected = pin.m_pSnapshot;
  if (!m_pCurrent.compare_exchange_strong(expected, next.get())) return false;
  static_cast<void>(next.release());  // the list's now
  Retire(expected);
  return true;
}

void CResponderList::Retire(Snapshot* snapshot) noexcept {
  if (snapshot == nullptr) return;
  snapshot->pNext = m_pRetired.load();
  while (!m_pRetired.compare_exchange_weak(snapshot->pNext, snapshot)) {
  }
}

void CResponderList::FreeRetired() noexcept {
  if (m_pRetired.load() == nullptr) return;
  Snapshot* snapshot = m_pRetired.exchange(nullptr);
  const bool isUnread = m_nPins.load() == 0;
  while (snapshot != nullptr) {
    Snapshot* const next = snapshot->pNext;
    if (isUnread) {
      delete snapshot;
    } else {
      Retire(snapshot);
    }
    snapshot = next;
  }
}

}  // namespace qzhid
