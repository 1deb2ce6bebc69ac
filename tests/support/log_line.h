// A line of the log.
#pragma once

#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace qzhid::test {

/// The level of a line that was read from a file, which does not hold it; equals every level.
inline constexpr int kAnyLevel = -1;

/// A log line without its time stamp.
struct LogLine {
  int level = 0;
  std::string tag;
  std::string text;

  bool operator==(const LogLine& other) const {
    return (level == other.level || level == kAnyLevel || other.level == kAnyLevel) &&
           tag == other.tag && text == other.text;
  }
};

inline std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << line.level << ' ' << line.tag << ": " << line.text;
}

/// Lines of one tag, each given as level and text.
inline std::vector<LogLine> LinesOf(const std::string& tag,
                                    const std::vector<std::pair<int, std::string>>& texts) {
  std::vector<LogLine> lines;
  for (const auto& [level, text] : texts) lines.push_back({level, tag, text});
  return lines;
}

/// Takes the time stamp off a line as it was delivered.
inline LogLine ParseLogLine(const std::string& line, int level) {
  const std::string rest = line.substr(line.find("]  ") + 3);
  const std::size_t comma = rest.find(", ");
  return {level, rest.substr(0, comma), rest.substr(comma + 2)};
}

}  // namespace qzhid::test
