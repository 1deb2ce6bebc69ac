// Memory that runs out.
#pragma once

#include <cstdint>

namespace qzhid::test {

/// From now on allocations of this thread by operator new are counted, and those from number
/// `first` to number `last` throw std::bad_alloc (the next one is 1; with 0 and 0 none does). Those
/// of the virtual hub count like the library's: a platform service runs out of memory, too.
void MakeMemoryScarce(std::uint64_t first, std::uint64_t last);

/// Ends that; the allocations since.
std::uint64_t EndScarcity();

}  // namespace qzhid::test
