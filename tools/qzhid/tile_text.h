// What a bay's tile says, in the same words on each display.
#pragma once

#include <string>

#include "qzhid/station_view.h"

namespace qzhid {

/// What a worker sees from afar. A bay without a hub is free, or stopped with the line.
enum class TileKind { Free, Stop, Scan, Work, Pass, Fail };

struct TileText {
  TileKind kind = TileKind::Free;
  std::string word{};   ///< "PASS"
  std::string large{};  ///< the word, or how far the work is: "42%"
  std::string what{};   ///< why, or what is being done: "1.02 → 2.10"
  std::string next{};   ///< what the worker does: "unplug the hub"
};

TileText TextOf(const BayTile& bay, bool isStopped);

/// "bay left"; a name that begins with "bay" is not called a bay twice.
std::string TitleOf(const BayTile& bay);

/// As in "0:12 left"; empty when that is not known.
std::string TimeLeft(const BayTile& bay);

/// The unit's versions, and what was special about it: "1.02 → 2.10, 1 retry".
std::string VersionsText(const BayTile& bay);

/// The share of units that passed, and the units an hour; "-" while there are none.
std::string YieldText(const StationView& view);
std::string RateText(const StationView& view);

}  // namespace qzhid
