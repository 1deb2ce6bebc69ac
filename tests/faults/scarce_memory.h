// Memory that runs out.
#pragma once

#include <cstdint>

namespace qzhid::test {

/// While it lives, allocations of this thread by operator new are counted, and those from
/// `firstFailing` (1 is the next one) to `lastFailing` throw std::bad_alloc; with 0 all succeed.
/// Allocations of the virtual hub count like those of the library: for its caller a platform
/// service runs out of memory.
class ScarceMemory {
 public:
  ScarceMemory(std::uint64_t firstFailing, std::uint64_t lastFailing);
  ~ScarceMemory();
  ScarceMemory(const ScarceMemory&) = delete;
  ScarceMemory& operator=(const ScarceMemory&) = delete;

  /// Allocations so far.
  std::uint64_t used() const;
};

}  // namespace qzhid::test
