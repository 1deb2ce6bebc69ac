// Progress of an update on standard error.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace qzhid {

enum class ProgressStyle { None, Lines, Bar };

/// Shows what the library reports. One object at a time: the library passes no context.
class Progress {
 public:
  /// `size` is that of the image in bytes, `label` stands in front of each plain line.
  Progress(ProgressStyle style, std::string label, std::size_t size);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  /// What QZ_UpdateDev calls.
  static void Callback(std::int32_t percent);

 private:
  using Clock = std::chrono::steady_clock;

  void Show(std::int32_t percent);
  void ShowBar(std::int32_t percent) const;
  std::string Speed(std::int32_t percent) const;

  ProgressStyle style_;
  std::string label_;
  std::size_t size_;
  std::int32_t shown_ = -1;
  Clock::time_point writingSince_{};
  std::int32_t firstPercent_ = 0;  ///< reported at that time
};

}  // namespace qzhid
