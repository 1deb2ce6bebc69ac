// What a station shows: on the terminal or in lines on standard error, and on its page.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "qzhid/host.h"
#include "qzhid/station_events.h"
#include "qzhid/station_page.h"
#include "qzhid/station_view.h"
#include "qzhid/terminal_screen.h"

namespace qzhid {

class StationDisplay {
 public:
  /// `page` is empty when no page is wanted.
  StationDisplay(Host& host, const std::filesystem::path& page);
  ~StationDisplay() { End(); }
  StationDisplay(const StationDisplay&) = delete;
  StationDisplay& operator=(const StationDisplay&) = delete;

  /// Shows the station: whenever something changed, and about once a second, because a page that is
  /// not written again counts as out of date. Draws nothing when nothing visible changed.
  void Show(const StationView& view);
  /// Shows a remark that concerns no bay.
  void Say(const std::string& line);
  /// Writes the last page, and leaves the terminal as it was: what follows is printed below that.
  void End();

 private:
  void Draw();
  void PrintEvents(const std::vector<StationEvent>& events) const;

  Host& host_;
  PageFile page_;
  std::optional<TerminalScreen> screen_;  ///< none: lines
  std::optional<StationView> view_;       ///< that was shown last
  std::vector<std::string> remarks_;      ///< that only the screen has shown
};

}  // namespace qzhid
