// The wall clock of this computer in texts for people.
#pragma once

#include <chrono>
#include <string>

namespace qzhid {

/// As in "2026-03-09 14:05:59".
std::string LocalTimeText(std::chrono::system_clock::time_point time);

}  // namespace qzhid
