// The time of one machine.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace virtualhub {

inline constexpr std::uint64_t kUsPerMs = 1000;

/// Calendar time; month and day count from 1.
struct CalendarTime {
  int year, month, day, hour, minute, second;
};

/// Microseconds since the machine was made, virtual or real. Any thread may call it.
class Clock {
 public:
  enum class Mode {
    Virtual,  ///< time passes in SleepUs, which returns at once, and as PassPerLook says
    Real,
  };

  explicit Clock(Mode mode);

  Mode mode() const { return mode_; }
  std::uint64_t NowUs() const;
  /// The same, since 1970.
  std::uint64_t CalendarUs() const;
  void SleepUs(std::uint64_t microseconds);

  /// Lets that much virtual time pass each time the clock is read, as time passes while a program
  /// runs; 0 at first.
  void PassPerLook(std::uint64_t microseconds) { perLookUs_ = microseconds; }

  /// The calendar of the virtual clock: 2024-03-07 09:05:02 when the machine was made.
  CalendarTime VirtualCalendar() const;

 private:
  const Mode mode_;
  const std::chrono::steady_clock::time_point start_;
  const std::chrono::system_clock::time_point calendarStart_;
  // NowUs moves the time on in an object that otherwise stays as it is.
  mutable std::atomic<std::uint64_t> virtualUs_{0};
  std::atomic<std::uint64_t> perLookUs_{0};
};

}  // namespace virtualhub
