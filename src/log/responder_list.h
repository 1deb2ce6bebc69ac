// The message hub's receivers, as a list that is replaced whole.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "log/responder.h"

namespace qzhid {

/// Registration order is kept. The lock is held only while the list is read or replaced, so a
/// receiver can be registered or the list emptied during a delivery, even on a thread that the
/// delivering thread waits for. Receivers are not owned.
class CResponderList {
 public:
  struct Registration {
    Registration(IResponder& receiver, unsigned kinds) : responder(receiver), takes(kinds) {}

    IResponder& responder;
    const unsigned takes;
    std::atomic<bool> isRegistered{true};
  };
  using Receivers = std::vector<std::shared_ptr<Registration>>;

  CResponderList() = default;
  CResponderList(const CResponderList&) = delete;
  CResponderList& operator=(const CResponderList&) = delete;

  /// Appends; the same receiver may be in the list more than once. Throws std::bad_alloc.
  void Add(IResponder* responder);
  /// Removes the first entry of that receiver, if there is one. Needs no memory.
  void Remove(const IResponder* responder);
  void Clear() noexcept;
  /// Clears, unless another thread has the lock: it may be gone without having released it.
  void TryClear() noexcept;
  /// Whether any receiver takes that kind.
  bool Takes(unsigned kind) const { return (m_nTakes & kind) != 0; }
  /// The list as it is now; null when there is none. It may hold entries that were removed.
  std::shared_ptr<const Receivers> Get();

  /// Held by the thread that forks the process, so that the child finds a whole list.
  std::mutex& ForkLock() { return m_Lock; }

 private:
  void ClearLocked() noexcept;
  void UpdateTakes() noexcept;

  std::atomic<unsigned> m_nTakes{0};  // what all that are registered take
  std::shared_ptr<const Receivers> m_pCurrent;
  std::mutex m_Lock;  // guards the pointer
};

}  // namespace qzhid
