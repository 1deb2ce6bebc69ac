// Which line of the table a logged text is, and the values in it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "qzhid/explain/log_lines.h"

namespace qzhid {

/// The texts that a line has for its conversions, such as "%d", as they are in the log.
struct LogValues {
  static constexpr std::size_t kMost = 11;  // no line has more

  std::array<std::string_view, kMost> texts;
  std::size_t count = 0;

  /// The number at an index, which is in decimal or, with or without "0x", in hexadecimal as the
  /// line says; negative ones as in 32 bits. 0 when there is no such number.
  std::uint32_t Number(std::size_t index) const;

  std::uint32_t hexadecimal = 0;  ///< a bit for each value that is
};

class LogPatterns {
 public:
  LogPatterns();

  /// The line of the table with that name and text; null when it has none.
  const LogLine* Match(std::string_view name, std::string_view text, LogValues& values) const;

 private:
  struct Piece {
    std::string_view before;  ///< the conversion
    char conversion = 0;      ///< its letter; 0 at the end
  };
  struct Pattern {
    const LogLine* line;
    std::vector<Piece> pieces;
  };
  using Patterns = std::vector<Pattern>;

  static std::vector<Piece> Split(std::string_view format);
  static bool Fits(const Pattern& pattern, std::string_view text, LogValues& values);
  const LogLine* MatchNamed(std::string_view name, std::string_view text, LogValues& values) const;

  std::unordered_map<std::string_view, Patterns> byName_;
};

}  // namespace qzhid
