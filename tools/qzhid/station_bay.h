// One bay of a station: what is known of the unit in it, what is shown of it and recorded.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "qzhid/clock.h"
#include "qzhid/hubs.h"
#include "qzhid/station_record.h"
#include "qzhid/station_view.h"
#include "qzhid/update_job.h"

namespace qzhid {

/// One bay, from the arrival of a hub until it is unplugged.
struct Bay {
  enum class Stage {
    Free,
    Arrived,    ///< until its hub can be written
    Working,    ///< a worker has the hub, and all that it does on the bus is the worker's business
    Recording,  ///< the unit is done, and its record is not on the disk
    Done        ///< until the hub is unplugged
  };

  BayTile tile;
  std::string port{};      ///< which the engineer has named
  std::string location{};  ///< of its hubs; not known before the first one
  Stage stage = Stage::Free;
  std::optional<Hub> hub{};
  std::optional<Clock::Time> awaySince{};
  Clock::Time since{};      ///< its arrival, then its start
  std::size_t arrival = 0;  ///< counted over all bays
  UnitRecord::Date started{};
  std::optional<UpdateJob> job{};

  /// The hub was away for too long while it was written.
  bool WasLost() const;
  /// The unit was written.
  bool IsPassed() const;

  /// Puts into the tile how far the worker is.
  void ShowProgress(Clock::Time now);
  /// Puts into the tile what became of the unit.
  void ShowOutcome();
  /// Adds to a record what is known of the unit that is done.
  void FillRecord(UnitRecord& record, Clock::Time now) const;
};

}  // namespace qzhid
