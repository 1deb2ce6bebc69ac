#include "qzhid/explain/log_patterns.h"

#include <algorithm>
#include <charconv>
#include <string>

namespace qzhid {

namespace {

constexpr std::string_view kBlanks = " \n\r\t";

bool IsHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

std::string_view WithoutBlanksAround(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// How many characters at the start of a text the conversion may have written.
std::size_t LengthOf(char conversion, std::string_view text, std::string_view next, bool isLast) {
  const auto count = [text](auto isPart) {
    return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isPart) -
                                    text.begin());
  };
  switch (conversion) {
    case 'd':
      return count([](char c) { return (c >= '0' && c <= '9') || c == '-'; });
    case 'x':
    case 'X':
      return count(IsHexDigit);
    case 'p':  // "0x1f00", "000001F0", "(nil)" or "(null)", before a comma or at the end
      return std::min(text.find(','), text.size());
    default:  // any text up to what follows
      if (!isLast) return text.find(next);
      return text.ends_with(next) ? text.size() - next.size() : std::string_view::npos;
  }
}

}  // namespace

std::uint32_t LogValues::Number(std::size_t index) const {
  if (index >= count) return 0;
  const std::string_view text = texts[index];
  const char* const end = text.data() + text.size();
  if ((hexadecimal >> index & 1) != 0) {
    std::uint32_t number = 0;
    std::from_chars(text.data(), end, number, 16);
    return number;
  }
  std::int64_t number = 0;
  std::from_chars(text.data(), end, number);
  return static_cast<std::uint32_t>(number);
}

LogPatterns::LogPatterns() {
  for (const LogLine& line : LogLines()) {
    if (line.names == std::string_view(kNotInFiles)) continue;
    const Pattern pattern{&line, Split(line.text)};
    for (std::string_view names = line.names; !names.empty();) {
      const std::string_view name = names.substr(0, names.find(' '));
      names.remove_prefix(std::min(names.size(), name.size() + 1));
      byName_[name].push_back(pattern);
    }
  }
}

const LogLine* LogPatterns::Match(std::string_view name, std::string_view text,
                                  LogValues& values) const {
  if (const LogLine* line = MatchNamed(name, text, values); line != nullptr) return line;
  if (name.starts_with("QZ_")) return MatchNamed("QZ_*", text, values);
  const std::size_t colons = name.find("::");
  if (colons == std::string_view::npos) return nullptr;
  return MatchNamed(std::string(name.substr(0, colons)) + "::*", text, values);
}

const LogLine* LogPatterns::MatchNamed(std::string_view name, std::string_view text,
                                       LogValues& values) const {
  const auto found = byName_.find(name);
  if (found == byName_.end()) return nullptr;
  const auto fitting = std::find_if(
      found->second.begin(), found->second.end(),
      [&](const Pattern& pattern) { return Fits(pattern, WithoutBlanksAround(text), values); });
  return fitting != found->second.end() ? fitting->line : nullptr;
}

std::vector<LogPatterns::Piece> LogPatterns::Split(std::string_view format) {
  std::vector<Piece> pieces;
  format = WithoutBlanksAround(format);
  std::size_t start = 0;
  for (std::size_t at = format.find('%'); at != std::string_view::npos;
       at = format.find('%', start)) {
    const std::size_t letter = format.find_first_of("dxXps", at);
    pieces.push_back({format.substr(start, at - start), format[letter]});
    start = letter + 1;
  }
  pieces.push_back({format.substr(start)});
  return pieces;
}

bool LogPatterns::Fits(const Pattern& pattern, std::string_view text, LogValues& values) {
  values.count = 0;
  values.hexadecimal = 0;
  for (std::size_t i = 0; i < pattern.pieces.size(); ++i) {
    const auto& [before, conversion] = pattern.pieces[i];
    if (!text.starts_with(before)) return false;
    text.remove_prefix(before.size());
    if (conversion == 0) break;
    const Piece& next = pattern.pieces[i + 1];
    const std::size_t length = LengthOf(conversion, text, next.before, next.conversion == 0);
    if (length == std::string_view::npos) return false;
    if (length == 0 && conversion != 's') return false;
    if (conversion == 'x' || conversion == 'X') values.hexadecimal |= 1u << values.count;
    values.texts[values.count++] = text.substr(0, length);
    text.remove_prefix(length);
  }
  return text.empty();
}

}  // namespace qzhid
