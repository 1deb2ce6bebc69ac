// The station in lines, for a log or where there is no terminal.
#pragma once

#include <string>
#include <vector>

#include "qzhid/station_view.h"

namespace qzhid {

struct StationEvent {
  std::string text;        ///< "bay left: PASS: 1.02 → 2.10"
  bool isFailure = false;  ///< a unit failed, or the line stopped
};

/// What happened between two views of a station.
std::vector<StationEvent> EventsBetween(const StationView& before, const StationView& after);

}  // namespace qzhid
