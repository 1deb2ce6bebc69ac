// What a station shows.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "qzhid/host.h"
#include "qzhid/station_view.h"

namespace qzhid {

class StationDisplay {
 public:
  StationDisplay(Host& host, const std::filesystem::path& page);

  void Show(const StationView& view);
  /// A remark that concerns no bay.
  void Say(const std::string& line);

 private:
  Host& host_;
  std::vector<std::string> shown_;
};

}  // namespace qzhid
