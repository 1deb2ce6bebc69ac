// The hub's receivers, as an immutable list that is swapped whole.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "log/responder.h"

namespace qzhid {

/// Registration order is kept. No operation waits for another thread, so that a receiver can be
/// registered or the list emptied while a delivery is under way, even from a thread that the
/// delivering thread waits for, and in a process that is being torn down. Receivers are not owned.
class CResponderList {
  struct Snapshot;

 public:
  struct Entry {
    IResponder* responder;
    unsigned takes;
  };
  using Receivers = std::vector<Entry>;

  CResponderList() = default;
  CResponderList(const CResponderList&) = delete;
  CResponderList& operator=(const CResponderList&) = delete;
  ~CResponderList();

  /// Appends; the same receiver may stand in the list more than once. Throws std::bad_alloc.
  void Add(IResponder* responder);
  /// Removes the first entry of that receiver, if there is one. The first removal after an Add
  /// needs no memory; others may throw std::bad_alloc.
  void Remove(const IResponder* responder);
  void Clear() noexcept;
  /// Whether any receiver takes what is of that kind.
  bool Takes(unsigned kind) noexcept;

  /// Keeps one list alive while it is read.
  class CPin {
   public:
    explicit CPin(CResponderList& list) noexcept;
    ~CPin();
    CPin(const CPin&) = delete;
    CPin& operator=(const CPin&) = delete;

    const Receivers& Get() const noexcept;
    bool Takes(unsigned kind) const noexcept;
    /// Whether the receiver still stands in the list as it is now.
    bool IsRegistered(const IResponder* responder) const noexcept;

   private:
    friend class CResponderList;
    CResponderList& m_List;
    Snapshot* m_pSnapshot;
  };

 private:
  std::unique_ptr<Snapshot> TakeRoom(std::size_t receivers);
  bool TryReplace(const CPin& pin, std::unique_ptr<Snapshot> next);
  void Retire(Snapshot* snapshot) noexcept;
  void FreeRetired() noexcept;

  std::atomic<Snapshot*> m_pCurrent{nullptr};  // null: empty
  std::atomic<Snapshot*> m_pRetired{nullptr};  // replaced, perhaps still being read
  std::atomic<Snapshot*> m_pSpare{nullptr};    // for a removal when there is no memory left
  std::atomic<unsigned> m_nPins{0};
};

}  // namespace qzhid
