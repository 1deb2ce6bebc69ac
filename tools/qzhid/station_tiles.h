// The station on a terminal: a tile for each bay.
#pragma once

#include <string>
#include <vector>

#include "qzhid/canvas.h"
#include "qzhid/station_view.h"
#include "qzhid/system.h"

namespace qzhid {

/// The lines that a terminal of that size shows. A remark concerns no bay; it is below the tiles.
std::vector<std::string> DrawTiles(const StationView& view, const std::string& remark,
                                   const system::TerminalSize& size,
                                   const TerminalAbilities& terminal);

}  // namespace qzhid
