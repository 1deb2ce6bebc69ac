#include "virtualhub/bus/clock.h"

#include <thread>

namespace virtualhub {

namespace {

using namespace std::chrono_literals;
constexpr auto kVirtualStart =
    std::chrono::sys_days{std::chrono::year{2024} / 3 / 7} + 9h + 5min + 2s;

}  // namespace

Clock::Clock(Mode mode)
    : mode_(mode),
      start_(std::chrono::steady_clock::now()),
      calendarStart_(mode == Mode::Virtual ? kVirtualStart : std::chrono::system_clock::now()) {}

std::uint64_t Clock::CalendarUs() const {
  const auto start = std::chrono::floor<std::chrono::microseconds>(calendarStart_);
  return static_cast<std::uint64_t>(start.time_since_epoch().count()) + NowUs();
}

std::uint64_t Clock::NowUs() const {
  if (mode_ == Mode::Virtual) return virtualUs_ += perLookUs_;
  const auto elapsed = std::chrono::steady_clock::now() - start_;
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::microseconds>(elapsed).count());
}

void Clock::SleepUs(std::uint64_t microseconds) {
  if (mode_ == Mode::Virtual) {
    virtualUs_ += microseconds;
  } else if (microseconds > 0) {
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
  }
}

CalendarTime Clock::VirtualCalendar() const {
  const auto now = kVirtualStart + std::chrono::seconds(NowUs() / 1'000'000);
  const auto midnight = std::chrono::floor<std::chrono::days>(now);
  const std::chrono::year_month_day date(midnight);
  const std::chrono::hh_mm_ss time(now - midnight);
  return {static_cast<int>(date.year()),
          static_cast<int>(static_cast<unsigned>(date.month())),
          static_cast<int>(static_cast<unsigned>(date.day())),
          static_cast<int>(time.hours().count()),
          static_cast<int>(time.minutes().count()),
          static_cast<int>(time.seconds().count())};
}

}  // namespace virtualhub
