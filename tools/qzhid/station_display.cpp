#include "qzhid/station_display.h"

#include <iostream>

namespace qzhid {

namespace {

std::string Text(const BayTile& tile) {
  const std::string bay = "bay " + tile.name + ": ";
  switch (tile.state) {
    case BayState::Empty:
      return bay + "empty";
    case BayState::Label:
      return bay + "scan the label";
    case BayState::Working:
      return bay + tile.activity;
    case BayState::Passed:
      return bay + "PASS " + tile.outcome + ", " + tile.from + " -> " + tile.runs;
    default:
      return bay + "FAIL " + tile.outcome + ": " + tile.reason + "; " + tile.next;
  }
}

}  // namespace

StationDisplay::StationDisplay(Host& host, const std::filesystem::path&) : host_(host) {}

void StationDisplay::Show(const StationView& view) {
  std::vector<std::string> lines;
  for (const BayTile& tile : view.bays) lines.push_back(Text(tile));
  lines.push_back(view.stopped.empty() ? "the line runs" : "STOPPED: " + view.stopped);
  shown_.resize(view.bays.size() + 1);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (lines[i] != shown_[i]) Say(lines[i]);
  }
  shown_ = std::move(lines);
}

void StationDisplay::Say(const std::string& line) {
  if (!host_.Settings().isQuiet) std::cerr << line + '\n' << std::flush;
}

}  // namespace qzhid
