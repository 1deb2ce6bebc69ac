// The library's copy of the last device list.
#pragma once

#include <algorithm>
#include <new>
#include <vector>

#include "QzHidAPI.h"
#include "platform/process_object.h"

namespace qzhid {

class CDevListCache {
 public:
  static CDevListCache& Instance() {
    static constinit platform::CProcessObject<CDevListCache> instance;
    return instance.Get();
  }

  /// Drops the records. The count stays until a listing that finds devices.
  void Clear() { m_Records.clear(); }

  /// Stores what a listing found: the count if it is not 0, and the records if there are any.
  void Store(const HidDevRecord* records, std::uint32_t count) {
    if (count != 0) m_nCount = count;
    if (records != nullptr) m_Records.assign(records, records + count);
  }

  /// Forgets the records without touching them, which may be half stored.
  void Abandon() noexcept {
    new (&m_Records) std::vector<HidDevRecord>;
    m_nCount = 0;
  }

  /// The first record with that number; null when there is none.
  const HidDevRecord* Find(std::uint32_t devInst) const {
    const auto count = std::min<std::size_t>(m_nCount, m_Records.size());
    const auto end = m_Records.begin() + static_cast<std::ptrdiff_t>(count);
    const auto found = std::find_if(m_Records.begin(), end, [&](const HidDevRecord& record) {
      return record.dwInst == devInst;
    });
    return found != end ? &*found : nullptr;
  }

 private:
  friend class platform::CProcessObject<CDevListCache>;

  CDevListCache() = default;

  std::vector<HidDevRecord> m_Records;
  std::uint32_t m_nCount = 0;
};

}  // namespace qzhid
