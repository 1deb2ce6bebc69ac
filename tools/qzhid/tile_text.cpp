#include "qzhid/tile_text.h"

#include <array>
#include <cmath>
#include <cstdio>

namespace qzhid {

namespace {

constexpr const char* kNothing = "-";

TileKind KindOf(const BayTile& bay, bool isStopped) {
  switch (bay.state) {
    case BayState::Label:
      return TileKind::Scan;
    case BayState::Working:
      return TileKind::Work;
    case BayState::Passed:
      return TileKind::Pass;
    case BayState::Failed:
      return TileKind::Fail;
    default:
      return isStopped ? TileKind::Stop : TileKind::Free;
  }
}

std::string RetriesText(int retries) {
  if (retries == 0) return "";
  return ", " + std::to_string(retries) + (retries == 1 ? " retry" : " retries");
}

std::string OneDecimal(double number) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f", number);
  return text.data();
}

}  // namespace

std::string VersionsText(const BayTile& bay) {
  const std::string versions = bay.outcome == "current" || bay.from.empty()
                                   ? "already ran " + bay.runs
                                   : bay.from + " → " + bay.runs;
  return versions + RetriesText(bay.retries);
}

TileText TextOf(const BayTile& bay, bool isStopped) {
  // In the order of the kinds.
  constexpr std::array kWords{"FREE", "STOP", "SCAN", "BUSY", "PASS", "FAIL"};
  TileText text;
  text.kind = KindOf(bay, isStopped);
  text.word = text.large = kWords[static_cast<std::size_t>(text.kind)];
  switch (text.kind) {
    case TileKind::Free:
      text.next = "plug a hub in";
      break;
    case TileKind::Stop:
      text.next = "plug nothing in";
      break;
    case TileKind::Scan:
      text.next = "scan the label";
      break;
    case TileKind::Work:
      if (bay.percent >= 0) text.large = std::to_string(bay.percent) + "%";
      text.what = bay.activity + RetriesText(bay.retries);
      break;
    case TileKind::Pass:
      text.what = VersionsText(bay);
      text.next = "unplug the hub";
      break;
    case TileKind::Fail:
      text.what = bay.outcome + ": " + bay.reason;
      text.next = bay.next;
      break;
  }
  return text;
}

std::string TitleOf(const BayTile& bay) {
  return bay.name.starts_with("bay") || bay.name.starts_with("Bay") ? bay.name : "bay " + bay.name;
}

std::string TimeLeft(const BayTile& bay) {
  if (bay.state != BayState::Working || !bay.secondsLeft) return "";
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%d:%02d left", *bay.secondsLeft / 60,
                *bay.secondsLeft % 60);
  return text.data();
}

std::string YieldText(const StationView& view) {
  const std::size_t units = view.passed + view.failed;
  if (units == 0) return kNothing;
  if (view.failed == 0) return "100 %";
  // Rounded down: 100 % means that none failed.
  const double yield = 100.0 * static_cast<double>(view.passed) / static_cast<double>(units);
  return OneDecimal(std::floor(yield * 10) / 10) + " %";
}

std::string RateText(const StationView& view) {
  constexpr double kFew = 10;
  if (view.unitsPerHour <= 0) return kNothing;
  return view.unitsPerHour < kFew ? OneDecimal(view.unitsPerHour)
                                  : std::to_string(std::lround(view.unitsPerHour));
}

}  // namespace qzhid
