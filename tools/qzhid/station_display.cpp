#include "qzhid/station_display.h"

#include <algorithm>
#include <iostream>

#include "qzhid/local_time.h"
#include "qzhid/station_tiles.h"
#include "qzhid/terminal_text.h"

namespace qzhid {

namespace {

constexpr std::size_t kKeptRemarks = 20;

std::string WithTime(const std::string& line) {
  return LocalTimeText(std::chrono::system_clock::now()) + ' ' + line;
}

}  // namespace

StationDisplay::StationDisplay(Host& host, const std::filesystem::path& page)
    : host_(host), page_(page) {
  if (host.MayMove()) screen_.emplace();
}

void StationDisplay::End() {
  page_.End();
  if (!screen_) return;
  screen_.reset();
  for (const std::string& remark : remarks_) std::cerr << remark + '\n';
  std::cerr << std::flush;
}

void StationDisplay::Show(const StationView& view) {
  const std::vector<StationEvent> events = EventsBetween(view_.value_or(StationView()), view);
  view_ = view;
  PrintEvents(events);
  Draw();
  const bool hasFailure = std::any_of(events.begin(), events.end(),
                                      [](const StationEvent& event) { return event.isFailure; });
  if (hasFailure && !host_.Settings().isQuiet && system::IsTerminal(system::Stream::Errors)) {
    std::cerr << '\a' << std::flush;
  }
  const std::string trouble = page_.Show(view);
  if (!trouble.empty()) Say(trouble);
}

void StationDisplay::Say(const std::string& line) {
  const std::string clean = WithTime(ToUtf8(ShownCharacters(line)));
  if (!screen_) {
    std::cerr << clean + '\n' << std::flush;
    return;
  }
  remarks_.push_back(clean);
  if (remarks_.size() > kKeptRemarks) remarks_.erase(remarks_.begin());
  Draw();
}

void StationDisplay::Draw() {
  if (!screen_ || !view_) return;
  const TerminalAbilities terminal{host_.IsColourful(), screen_->HasUtf8()};
  const system::TerminalSize size = system::DrawableTerminal();
  const std::string remark = remarks_.empty() ? "" : remarks_.back();
  screen_->Draw(DrawTiles(*view_, remark, size, terminal), size);
}

void StationDisplay::PrintEvents(const std::vector<StationEvent>& events) const {
  if (screen_) return;
  for (const StationEvent& event : events) {
    if (host_.Settings().isQuiet && !event.isFailure) continue;
    std::cerr << WithTime(event.text) + '\n' << std::flush;
  }
}

}  // namespace qzhid
