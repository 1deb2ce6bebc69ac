// Progress of updates on standard error.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qzhid {

/// What an update is doing, in order.
enum class Phase { Preparing, Erasing, Writing, Checking, Starting, Done };

/// How far the update of one hub is.
class Progress {
 public:
  /// What the library reports when the flash is erased, and when the image is in it.
  static constexpr std::int32_t kErased = 30;
  static constexpr std::int32_t kWritten = 70;

  /// `size` is that of the image in bytes.
  explicit Progress(std::size_t size) : size_(size) {}

  /// Takes what the library reports; whether that is worth a line of its own.
  bool Take(std::int32_t percent);

  Phase CurrentPhase() const;
  const char* PhaseName() const;
  std::size_t Size() const { return size_; }
  std::int32_t Percent() const { return percent_; }

  /// As in "writing, 40 %".
  std::string Text() const;
  /// A bar after a label, for a terminal of that width.
  std::string Bar(const std::string& label, std::size_t columns, bool isColourful) const;

 private:
  using Clock = std::chrono::steady_clock;

  std::string Speed() const;

  std::size_t size_;
  std::int32_t percent_ = -1;
  Clock::time_point writingSince_{};
  std::int32_t firstPercent_ = 0;  ///< reported at that time
};

/// Lines at the end of a terminal that are drawn again in place.
class LiveLines {
 public:
  /// Draws the lines, or draws them over those that were drawn last.
  void Draw(const std::vector<std::string>& lines);
  /// Writes a line that stays above them.
  void Say(const std::string& line);

 private:
  std::string Home() const;

  std::size_t drawn_ = 0;
};

}  // namespace qzhid
