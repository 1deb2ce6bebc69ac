#include "qzhid/explain/log_reader.h"

#include <algorithm>
#include <chrono>

namespace qzhid {

namespace {

// The library cuts its lines at about 1200 bytes. A longer line is none of its own, and is kept out
// of memory.
constexpr std::size_t kLongestLine = 8192;
constexpr std::string_view kStamp = "[0000-00-00, 00:00:00]  ";

bool IsStamp(std::string_view text) {
  if (text.size() < kStamp.size()) return false;
  for (std::size_t i = 0; i < kStamp.size(); ++i) {
    const bool isDigit = text[i] >= '0' && text[i] <= '9';
    if (kStamp[i] == '0' ? !isDigit : text[i] != kStamp[i]) return false;
  }
  return true;
}

/// Where a stamp begins; npos when there is none.
std::size_t FindStamp(std::string_view line) {
  std::size_t at = line.find('[');
  while (at != std::string_view::npos && !IsStamp(line.substr(at))) at = line.find('[', at + 1);
  return at;
}

std::int64_t MicrosecondsOf(std::string_view stamp) {
  const auto number = [stamp](std::size_t at, std::size_t digits) {
    int value = 0;
    for (const char digit : stamp.substr(at, digits)) value = value * 10 + (digit - '0');
    return value;
  };
  using namespace std::chrono;
  const year_month_day day{year(number(1, 4)), month(static_cast<unsigned>(number(6, 2))),
                           std::chrono::day(static_cast<unsigned>(number(9, 2)))};
  const auto days = sys_days(day).time_since_epoch();
  return microseconds(duration_cast<seconds>(days) + hours(number(13, 2)) + minutes(number(16, 2)) +
                      seconds(number(19, 2)))
      .count();
}

}  // namespace

void LogReader::Take(std::string_view piece) {
  if (shape_.bytes == 0) {
    const bool isWide = piece.starts_with("\xFF\xFE") || piece.starts_with("\xFE\xFF");
    shape_.isWide = isWide || (piece.size() > 1 && piece[1] == '\0');
  }
  shape_.bytes += piece.size();
  while (!piece.empty()) {
    const std::size_t end = piece.find('\n');
    const std::string_view part = piece.substr(0, end);
    if (end == std::string_view::npos) {
      open_.append(part.substr(0, kLongestLine - std::min(kLongestLine, open_.size())));
      return;
    }
    piece.remove_prefix(end + 1);
    if (open_.empty()) {
      TakeLine(part.substr(0, kLongestLine));
    } else {
      open_.append(part.substr(0, kLongestLine - std::min(kLongestLine, open_.size())));
      TakeLine(open_);
      open_.clear();
    }
  }
}

void LogReader::End() {
  // The blank after a line of the library that goes on is no cut line.
  const bool isCut = open_.find_first_not_of(" .\r") != std::string::npos;
  if (isCut) TakeLine(open_);
  shape_.isCutAtEnd = isCut;
  open_.clear();
  EndEvent();
}

void LogReader::TakeLine(std::string_view line) {
  ++shape_.lines;
  isWindows_ = line.ends_with('\r');
  if (isWindows_) line.remove_suffix(1);
  TakeRest(line);
}

/// A line of the file. It may begin with the rest of a text that has a line end inside, and a text
/// that the library has cut has no line end.
void LogReader::TakeRest(std::string_view line) {
  for (std::size_t at = FindStamp(line); at != std::string_view::npos; at = FindStamp(line)) {
    AddText(line.substr(0, at));
    EndEvent();
    const std::string_view rest = line.substr(at + kStamp.size());
    const std::size_t next = FindStamp(rest);
    BeginEvent(line.substr(at, kStamp.size()), rest.substr(0, next));
    if (next == std::string_view::npos) return;
    line = rest.substr(next);
  }
  AddText(line);
}

void LogReader::BeginEvent(std::string_view stamp, std::string_view rest) {
  if (stamp != stamp_) {
    stamp_ = stamp;
    stampUs_ = MicrosecondsOf(stamp);
  }
  current_.timeUs = stampUs_;
  current_.number = shape_.lines;
  current_.isWindows = isWindows_;
  event_ = rest;
  isInEvent_ = true;
}

void LogReader::AddText(std::string_view text) {
  if (!isInEvent_) {
    if (shape_.events == 0 && !text.empty()) shape_.isCutAtStart = true;
    return;
  }
  if (text.find_first_not_of(" .") == std::string_view::npos) return;
  if (event_.size() < kLongestLine) event_.append(" ").append(text);
}

void LogReader::EndEvent() {
  if (!isInEvent_) return;
  isInEvent_ = false;
  const std::string_view whole = event_;
  const std::size_t comma = whole.find(", ");
  if (comma == std::string_view::npos && !whole.ends_with(',')) return;
  ++shape_.events;
  current_.name = whole.substr(0, std::min(comma, whole.size() - 1));
  current_.text = comma == std::string_view::npos ? std::string_view() : whole.substr(comma + 2);
  current_.line = patterns_.Match(current_.name, current_.text, current_.values);
  if (current_.line == nullptr) ++shape_.unknown;
  receiver_(current_);
}

}  // namespace qzhid
