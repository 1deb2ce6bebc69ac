#include "qzhid/station_page.h"

#include <algorithm>
#include <array>

#include "common/files.h"
#include "common/texts.h"
#include "qzhid/local_time.h"
#include "qzhid/station_events.h"
#include "qzhid/station_page_parts.h"
#include "qzhid/terminal_text.h"
#include "qzhid/tile_text.h"

namespace qzhid {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// How often a page is written at least, and how old it can be before it counts as out of date.
constexpr seconds kBusyBeat{1}, kBusyAge{5};
constexpr seconds kIdleBeat{5}, kIdleAge{20};
constexpr milliseconds kLeastPause{250};  // between two pages that differ in numbers only
constexpr int kShortTroubles = 5;         // as when the browser has the file open on Windows

// Text from outside as a part of a page.
std::string Escaped(const std::string& text) {
  return tools::EscapeHtml(ToUtf8(ShownCharacters(text)));
}

std::string Paragraph(const std::string& name, const std::string& text) {
  return "<p class=\"" + name + "\">" + Escaped(text) + "</p>\n";
}

// Names and labels that are too long, with their ends.
std::string Ending(const std::string& text, std::size_t columns) {
  return ToUtf8(CutBeginning(ShownCharacters(text), columns));
}

std::string BarOf(const BayTile& bay) {
  if (bay.state != BayState::Working || bay.percent < 0) return "";
  const std::string percent = std::to_string(std::min(bay.percent, 100));
  return "<div class=\"bar\" role=\"progressbar\" aria-label=\"progress\" aria-valuenow=\"" +
         percent + "\"><div style=\"width: " + percent + "%\"></div></div>\n";
}

std::string TileOf(const BayTile& bay, bool isStopped) {
  // In the order of TileKind.
  constexpr std::array kClasses{"free", "stop", "scan", "work", "pass", "fail"};
  constexpr std::array kSymbols{"○", "■", "≡", "►", "✓", "✗"};
  constexpr std::size_t kNameColumns = 17, kLabelColumns = 28, kShortText = 90;  // that fit
  const TileText text = TextOf(bay, isStopped);
  const auto kind = static_cast<std::size_t>(text.kind);
  const std::string left = TimeLeft(bay);
  const std::string doing = text.what + (text.what.empty() || left.empty() ? "" : ", ") + left;
  const bool isLong = doing.size() + text.next.size() > kShortText;
  return std::string("<section class=\"") + kClasses[kind] + (isLong ? " long" : "") +
         "\" title=\"" + Escaped(TitleOf(bay)) + "\">\n<h2>" +
         Escaped(Ending(TitleOf(bay), kNameColumns)) + "</h2>\n" +
         Paragraph("word", std::string(kSymbols[kind]) + ' ' + text.large) + BarOf(bay) +
         Paragraph("what", doing) + Paragraph("next", text.next) +
         Paragraph("label", Ending(bay.label, kLabelColumns)) + "</section>\n";
}

struct PageGrid {
  std::size_t across, down;
};

// The grid with the largest tiles on a monitor of that shape.
PageGrid ChoosePageGrid(std::size_t bays, double width, double height) {
  constexpr double kTileWidth = 20, kTileHeight = 15.5;  // in units, as in the style
  PageGrid best{1, std::max<std::size_t>(bays, 1)};
  double largest = 0;
  for (std::size_t across = 1; across <= bays; ++across) {
    const std::size_t down = (bays + across - 1) / across;
    const double unit = std::min(width / (kTileWidth * static_cast<double>(across)),
                                 height / (kTileHeight * static_cast<double>(down)));
    if (unit <= largest) continue;
    best = {across, down};
    largest = unit;
  }
  return best;
}

std::string GridStyle(std::size_t bays) {
  const PageGrid wide = ChoosePageGrid(bays, 16, 8), tall = ChoosePageGrid(bays, 9, 13);
  const auto variables = [](const std::string& name, const PageGrid& grid) {
    return "--" + name + "-across: " + std::to_string(grid.across) + "; --" + name +
           "-down: " + std::to_string(grid.down) + ";";
  };
  return variables("wide", wide) + ' ' + variables("tall", tall);
}

std::string Total(const std::string& name, const std::string& value) {
  return "<div><dt>" + name + "</dt><dd>" + value + "</dd></div>\n";
}

std::string HeaderOf(const StationView& view) {
  return "<header>\n<h1>" + Escaped(view.image + ' ' + view.imageVersion) + "</h1>\n<dl>\n" +
         Total("passed", std::to_string(view.passed)) +
         Total("failed", std::to_string(view.failed)) + Total("yield", YieldText(view)) +
         Total("units an hour", RateText(view)) + "</dl>\n</header>\n";
}

std::string AlertsOf(const StationView& view, const PageTime& time, const std::string& written) {
  std::string alerts;
  if (!view.stopped.empty()) {
    alerts += "<p class=\"alert\" id=\"stopped\">■ STOPPED: " + Escaped(view.stopped) + "</p>\n";
  }
  if (time.hasEnded) {
    alerts +=
        "<p class=\"alert\" id=\"ended\">■ ENDED: the station was ended at " + written + ".</p>\n";
  }
  return alerts + "<p class=\"alert\" id=\"old\">⚠ OUT OF DATE: nothing new since " + written +
         ". The station no longer runs, or this computer's clock is wrong.</p>\n";
}

std::string HeadOf(const StationView& view, const PageTime& time) {
  const auto age = time.written.time_since_epoch();
  return "<!DOCTYPE html>\n<html lang=\"en\" data-written=\"" +
         std::to_string(std::chrono::duration_cast<milliseconds>(age).count()) +
         "\" data-good-for=\"" + std::to_string(time.goodFor.count()) + '"' +
         (time.hasEnded ? " data-ended" : "") +
         ">\n<head>\n<meta charset=\"utf-8\">\n"
         "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
         "<noscript><meta http-equiv=\"refresh\" content=\"1\"></noscript>\n<title>" +
         std::to_string(view.passed) + " passed, " + std::to_string(view.failed) +
         " failed</title>\n<style>" + kPageStyle + "</style>\n</head>\n";
}

bool IsBusy(const StationView& view) {
  return std::any_of(view.bays.begin(), view.bays.end(),
                     [](const BayTile& bay) { return bay.state == BayState::Working; });
}

}  // namespace

std::string StationPage(const StationView& view, const PageTime& time) {
  const std::string written = LocalTimeText(time.written);
  std::string tiles;
  for (const BayTile& bay : view.bays) tiles += TileOf(bay, !view.stopped.empty());
  if (view.bays.empty()) tiles = Paragraph("hint", "plug a hub in");
  return HeadOf(view, time) + "<body class=\"" + (view.stopped.empty() ? "" : "told") +
         (time.hasEnded ? " told ended" : "") + "\">\n" + HeaderOf(view) +
         AlertsOf(view, time, written) + "<main style=\"" + GridStyle(view.bays.size()) + "\">\n" +
         tiles + "</main>\n<footer>\n<p>written " + written +
         "</p>\n<noscript>scripts are off: compare this time with a clock</noscript>\n</footer>\n"
         "<script>" +
         kPageScript + "</script>\n</body>\n</html>\n";
}

bool PageFile::IsDue(const StationView& view, Clock::time_point now) const {
  if (!shown_) return true;
  const auto age = now - written_;
  if (age >= (IsBusy(view) ? kBusyBeat : kIdleBeat)) return true;
  if (view == *shown_) return false;
  return age >= kLeastPause || !EventsBetween(*shown_, view).empty();
}

std::string PageFile::Show(const StationView& view) {
  const Clock::time_point now = Clock::now();
  if (path_.empty() || !IsDue(view, now)) return "";
  shown_ = view;
  written_ = now;
  return Write(false);
}

void PageFile::End() {
  if (!path_.empty() && shown_) Write(true);
  shown_.reset();
}

std::string PageFile::Write(bool hasEnded) {
  const PageTime time{std::chrono::system_clock::now(), IsBusy(*shown_) ? kBusyAge : kIdleAge,
                      hasEnded};
  const std::string page = StationPage(*shown_, time);
  try {
    std::error_code unknown;
    // Writing to a pipe would wait for its reader.
    if (std::filesystem::exists(path_, unknown) &&
        !std::filesystem::is_regular_file(path_, unknown)) {
      throw tools::FileError("is not a regular file");
    }
    tools::WriteFile(path_.string(),
                     {reinterpret_cast<const std::uint8_t*>(page.data()), page.size()});
    failures_ = 0;
    wasWritten_ = true;
    return "";
  } catch (const tools::FileError& error) {
    if (++failures_ != (wasWritten_ ? kShortTroubles : 1)) return "";
    return "the page " + path_.string() + " " + error.what() + "; the line goes on without it";
  }
}

}  // namespace qzhid
