// What a station shows: a tile for each bay, and totals.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace qzhid {

/// What a bay is doing.
enum class BayState {
  Empty,    ///< waits for a hub
  Label,    ///< waits for the label of its hub to be scanned
  Working,  ///< checks, writes or recovers its hub
  Passed,   ///< the hub runs the image; it can be unplugged
  Failed    ///< it does not
};

/// One bay, as every display shows it.
struct BayTile {
  std::string name;    ///< which the engineer has given to it, else the port id
  std::string portId;  ///< where it is: "1-3.1"
  BayState state = BayState::Empty;
  std::string label{};               ///< of the unit, as it was scanned
  std::string activity{};            ///< while it works: "writing", "waiting for the hub to return"
  int percent = -1;                  ///< of the update; -1 while that is not known
  std::optional<int> secondsLeft{};  ///< until the unit is done, as far as that is known
  int retries = 0;                   ///< that were made
  std::string from{};                ///< the version that the hub had: "1.02", "loader", "?"
  std::string runs{};                ///< the version that it has now
  std::string outcome{};             ///< of a unit that is done, in the words of update: "updated"
  std::string reason{};              ///< why it failed
  std::string next{};                ///< what to do about that

  bool operator==(const BayTile&) const = default;
};

/// The whole station.
struct StationView {
  std::vector<BayTile> bays;
  std::string image{};         ///< file name
  std::string imageVersion{};  ///< "2.10"
  std::size_t passed = 0;      ///< units since the station was started
  std::size_t failed = 0;
  double unitsPerHour = 0;  ///< 0 while it is not known
  std::string stopped{};    ///< why no further unit is started; empty while the line runs
  bool isEnding = false;    ///< because the user ends it, which is no trouble

  bool operator==(const StationView&) const = default;
};

}  // namespace qzhid
