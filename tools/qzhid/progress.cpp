#include "qzhid/progress.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <utility>

namespace qzhid {

namespace {

constexpr std::int32_t kErasing = 20;
constexpr std::int32_t kWriting = 30;
constexpr std::int32_t kWritten = 70;
constexpr std::int32_t kChecked = 90;
constexpr std::int32_t kDone = 100;
constexpr std::int32_t kLineStep = 10;
constexpr std::int32_t kBarWidth = 30;

Progress* current = nullptr;

const char* Phase(std::int32_t percent) {
  if (percent < kErasing) return "preparing";
  if (percent < kWriting) return "erasing";
  if (percent < kWritten) return "writing";
  if (percent < kChecked) return "checking";
  return percent < kDone ? "starting" : "done";
}

}  // namespace

Progress::Progress(ProgressStyle style, std::string label, std::size_t size)
    : style_(style), label_(std::move(label)), size_(size) {
  current = this;
}

Progress::~Progress() {
  current = nullptr;
  if (style_ == ProgressStyle::Bar && shown_ >= 0) std::cerr << std::endl;
}

void Progress::Callback(std::int32_t percent) {
  if (current != nullptr) current->Show(percent);
}

void Progress::Show(std::int32_t percent) {
  if (percent <= shown_) return;                   // also the 0 behind a failure
  if (percent > kWriting && shown_ <= kWriting) {  // before, the flash was erased
    writingSince_ = Clock::now();
    firstPercent_ = percent;
  }
  shown_ = percent;
  if (style_ == ProgressStyle::Bar) ShowBar(percent);
  if (style_ == ProgressStyle::Lines && percent % kLineStep == 0) {
    std::cerr << label_ << ": " << Phase(percent) << ", " << percent << " %" << std::endl;
  }
}

void Progress::ShowBar(std::int32_t percent) const {
  const std::int32_t filled = percent * kBarWidth / kDone;
  std::array<char, 32> numbers{};
  std::snprintf(numbers.data(), numbers.size(), " %3d %%  %-9s", static_cast<int>(percent),
                Phase(percent));
  std::cerr << "\r[\x1b[32m" << std::string(static_cast<std::size_t>(filled), '#') << "\x1b[0m"
            << std::string(static_cast<std::size_t>(kBarWidth - filled), '.') << ']'
            << numbers.data() << Speed(percent) << "\x1b[K" << std::flush;
}

std::string Progress::Speed(std::int32_t percent) const {
  const double seconds = std::chrono::duration<double>(Clock::now() - writingSince_).count();
  if (percent <= firstPercent_ || percent <= kWriting || percent >= kWritten) return "";
  const double perPercent = static_cast<double>(size_) / (kWritten - kWriting);
  const double rate = perPercent * (percent - firstPercent_) / seconds;
  const auto left = std::lround(perPercent * (kWritten - percent) / rate);
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "  %.1f KiB/s  %ld:%02ld to write", rate / 1024,
                left / 60, left % 60);
  return text.data();
}

}  // namespace qzhid
