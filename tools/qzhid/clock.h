// Time, for what waits.
#pragma once

#include <chrono>
#include <thread>

namespace qzhid {

/// The time that passes; tests have one of their own.
class Clock {
 public:
  using Time = std::chrono::steady_clock::time_point;

  virtual ~Clock() = default;
  virtual Time Now() { return std::chrono::steady_clock::now(); }
  virtual void Sleep(std::chrono::milliseconds time) { std::this_thread::sleep_for(time); }
};

/// An absence from the bus that lasts so long is no reset: the hub was unplugged. Hubs are away for
/// about a second when they reset; nobody exchanges a hub in less than two.
inline constexpr std::chrono::milliseconds kUnplugged{2000};

}  // namespace qzhid
