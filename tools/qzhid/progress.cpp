#include "qzhid/progress.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <iostream>

namespace qzhid {

namespace {

constexpr std::int32_t kErasing = 20;
constexpr std::int32_t kWriting = Progress::kErased;
constexpr std::int32_t kChecked = 90;
constexpr std::int32_t kDone = 100;
constexpr std::int32_t kLineStep = 10;
constexpr std::size_t kBarWidth = 30;
constexpr std::size_t kNumbersWidth = 18;
constexpr std::size_t kSpeedWidth = 31;

// In the order of the phases.
constexpr std::array kNames{"preparing", "erasing", "writing", "checking", "starting", "done"};

}  // namespace

bool Progress::Take(std::int32_t percent) {
  if (percent <= percent_) return false;             // also the 0 after a failure
  if (percent > kWriting && percent_ <= kWriting) {  // before, the flash was erased
    writingSince_ = Clock::now();
    firstPercent_ = percent;
  }
  percent_ = percent;
  return percent % kLineStep == 0;
}

Phase Progress::CurrentPhase() const {
  if (percent_ < kErasing) return Phase::Preparing;
  if (percent_ < kWriting) return Phase::Erasing;
  if (percent_ < kWritten) return Phase::Writing;
  if (percent_ < kChecked) return Phase::Checking;
  return percent_ < kDone ? Phase::Starting : Phase::Done;
}

const char* Progress::PhaseName() const { return kNames[static_cast<std::size_t>(CurrentPhase())]; }

std::string Progress::Text() const {
  return std::string(PhaseName()) + ", " + std::to_string(percent_) + " %";
}

std::string Progress::Bar(const std::string& label, std::size_t columns, bool isColourful) const {
  const auto percent = std::max(percent_, 0);
  std::array<char, 32> numbers{};
  std::snprintf(numbers.data(), numbers.size(), " %3d %%  %-9s", static_cast<int>(percent),
                PhaseName());
  // A terminal goes to the next line after its last column, so that stays free.
  const std::size_t taken = label.size() + 2 + kNumbersWidth;
  const std::size_t room = columns > taken ? columns - taken : 0;
  if (room < kLineStep) return (label + numbers.data()).substr(0, columns > 0 ? columns - 1 : 0);
  const std::size_t width = std::min(kBarWidth, room);
  const std::size_t filled = static_cast<std::size_t>(percent) * width / kDone;
  const char* const colour = isColourful ? "\x1b[32m" : "";
  return label + '[' + colour + std::string(filled, '#') + (isColourful ? "\x1b[0m" : "") +
         std::string(width - filled, '.') + ']' + numbers.data() +
         (room >= kBarWidth + kSpeedWidth ? Speed() : "");
}

std::string Progress::Speed() const {
  const double seconds = std::chrono::duration<double>(Clock::now() - writingSince_).count();
  if (percent_ <= firstPercent_ || percent_ <= kWriting || percent_ >= kWritten) return "";
  const double perPercent = static_cast<double>(size_) / (kWritten - kWriting);
  const double rate = perPercent * (percent_ - firstPercent_) / seconds;
  const auto left = std::lround(perPercent * (kWritten - percent_) / rate);
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "  %.1f KiB/s  %ld:%02ld to write", rate / 1024,
                left / 60, left % 60);
  return std::string(text.data()).substr(0, kSpeedWidth);
}

std::string LiveLines::Home() const {
  return drawn_ == 0 ? "" : "\r\x1b[" + std::to_string(drawn_) + 'A';
}

void LiveLines::Draw(const std::vector<std::string>& lines) {
  std::string text = Home();
  for (const std::string& line : lines) text += line + "\x1b[K\n";
  std::cerr << text << std::flush;  // in one piece, so that nothing flickers
  drawn_ = lines.size();
}

void LiveLines::Say(const std::string& line) {
  std::cerr << (drawn_ == 0 ? "" : Home() + "\x1b[J") + line + '\n' << std::flush;
  drawn_ = 0;
}

}  // namespace qzhid
