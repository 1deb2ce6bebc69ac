// What a station waits for: devices that come and go, and labels that are scanned.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "qzhid/process.h"

namespace qzhid {

class Arrivals {
 public:
  /// Virtual hubs come and go without the system. Lines are read from standard input if `hasLines`.
  Arrivals(bool isVirtual, bool hasLines);
  Arrivals(const Arrivals&) = delete;
  Arrivals& operator=(const Arrivals&) = delete;
  ~Arrivals();

  /// Returns when there is something to take, when one of the processes has something to read, at
  /// an interrupt, or after that time. Opens no device.
  void Await(const std::vector<const Process*>& processes, std::chrono::milliseconds time);

  /// Whether devices may have come or gone since the last call.
  bool TakeChange();

  /// A line that was scanned or typed; of a longer one than kLongestLine, its beginning.
  std::optional<std::string> TakeLine();
  /// There is no further line.
  bool HasEnded() const;

 private:
  struct Data;
  std::unique_ptr<Data> data_;
};

/// In bytes, more than any label has.
inline constexpr std::size_t kLongestLine = 4096;

/// How often virtual hubs may come and go.
inline constexpr std::chrono::milliseconds kVirtualChange{250};

}  // namespace qzhid
