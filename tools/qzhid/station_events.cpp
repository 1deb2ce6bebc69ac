#include "qzhid/station_events.h"

#include <algorithm>

#include "qzhid/terminal_text.h"
#include "qzhid/tile_text.h"

namespace qzhid {

namespace {

// What has come to a bay that is in another state now.
std::string StateEvent(const BayTile& bay) {
  const TileText text = TextOf(bay, false);
  const std::string label = bay.label.empty() ? "" : ", label " + bay.label;
  switch (text.kind) {
    case TileKind::Scan:
      return "a hub has arrived; scan its label";
    case TileKind::Work:
      return "started" + label + ": " + bay.activity;
    case TileKind::Pass:
      return text.word + ": " + text.what;
    case TileKind::Fail:
      return text.word + ": " + text.what + (text.next.empty() ? "" : "; " + text.next);
    default:
      return "unplugged";
  }
}

std::string BayEvent(const BayTile& before, const BayTile& after) {
  if (before.state != after.state || before.outcome != after.outcome) return StateEvent(after);
  if (after.state != BayState::Working) return "";
  return before.activity != after.activity ? after.activity : "";
}

// The same bay in another view; an empty one if it was not there.
BayTile BayIn(const StationView& view, const BayTile& bay) {
  const auto found = std::find_if(view.bays.begin(), view.bays.end(),
                                  [&](const BayTile& other) { return other.name == bay.name; });
  return found != view.bays.end() ? *found : BayTile();
}

}  // namespace

std::vector<StationEvent> EventsBetween(const StationView& before, const StationView& after) {
  std::vector<StationEvent> events;
  const auto add = [&](const std::string& text, bool isFailure) {
    events.push_back({ToUtf8(ShownCharacters(text)), isFailure});
  };
  for (const BayTile& bay : after.bays) {
    const std::string event = BayEvent(BayIn(before, bay), bay);
    if (!event.empty()) add(TitleOf(bay) + ": " + event, bay.state == BayState::Failed);
  }
  if (after.stopped.empty() && !before.stopped.empty()) add("the line runs again", false);
  if (after.stopped != before.stopped && !after.stopped.empty()) {
    add("the line has stopped: " + after.stopped, !after.isEnding);
  }
  return events;
}

}  // namespace qzhid
