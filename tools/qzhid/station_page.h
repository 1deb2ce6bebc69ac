// The station on a page for a browser, on a monitor above the line.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include "qzhid/station_view.h"

namespace qzhid {

/// When a page was written, and for how long it counts as current without being written again.
struct PageTime {
  std::chrono::system_clock::time_point written{};
  std::chrono::seconds goodFor{};
  bool hasEnded = false;  ///< it is the last one
};

/// A page that loads itself again each second and needs nothing else.
std::string StationPage(const StationView& view, const PageTime& time);

/// The file of a station's page, which is replaced when what it shows changes, and from time to
/// time when nothing does, so that it can be told from the page of a station that has died.
class PageFile {
 public:
  explicit PageFile(std::filesystem::path path) : path_(std::move(path)) {}

  /// Writes the page if that is due. What is to be said about that, if anything.
  std::string Show(const StationView& view);
  /// Writes the last page.
  void End();

 private:
  using Clock = std::chrono::steady_clock;

  bool IsDue(const StationView& view, Clock::time_point now) const;
  std::string Write(bool hasEnded);

  std::filesystem::path path_;
  std::optional<StationView> shown_;
  Clock::time_point written_{};
  int failures_ = 0;  ///< since it could be written
  bool wasWritten_ = false;
};

}  // namespace qzhid
