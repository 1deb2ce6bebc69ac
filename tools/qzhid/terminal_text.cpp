#include "qzhid/terminal_text.h"

#include <algorithm>
#include <array>

#include "virtualhub/base/utf8.h"

namespace qzhid {

namespace {

struct CharacterRange {
  char32_t first, last;
};

// Marks that are drawn over the character before them, and what only directs others.
constexpr std::array kWithoutWidth{
    CharacterRange{0x0300, 0x036F},   CharacterRange{0x0483, 0x0489},
    CharacterRange{0x0591, 0x05BD},   CharacterRange{0x0610, 0x061A},
    CharacterRange{0x064B, 0x065F},   CharacterRange{0x0E31, 0x0E31},
    CharacterRange{0x0E34, 0x0E3A},   CharacterRange{0x0E47, 0x0E4E},
    CharacterRange{0x1AB0, 0x1AFF},   CharacterRange{0x1DC0, 0x1DFF},
    CharacterRange{0x200B, 0x200F},   CharacterRange{0x2060, 0x2064},
    CharacterRange{0x20D0, 0x20F0},   CharacterRange{0x3099, 0x309A},
    CharacterRange{0xFE00, 0xFE0F},   CharacterRange{0xFE20, 0xFE2F},
    CharacterRange{0xFEFF, 0xFEFF},   CharacterRange{0x1F3FB, 0x1F3FF},
    CharacterRange{0xE0100, 0xE01EF},
};

// East Asian letters and pictures.
constexpr std::array kDoubleWidth{
    CharacterRange{0x1100, 0x115F},   CharacterRange{0x231A, 0x231B},
    CharacterRange{0x23E9, 0x23EC},   CharacterRange{0x25FD, 0x25FE},
    CharacterRange{0x2614, 0x2615},   CharacterRange{0x267F, 0x267F},
    CharacterRange{0x26A1, 0x26A1},   CharacterRange{0x26D4, 0x26D4},
    CharacterRange{0x2705, 0x2705},   CharacterRange{0x274C, 0x274E},
    CharacterRange{0x2753, 0x2757},   CharacterRange{0x2B50, 0x2B55},
    CharacterRange{0x2E80, 0x303E},   CharacterRange{0x3041, 0xA4CF},
    CharacterRange{0xA960, 0xA97F},   CharacterRange{0xAC00, 0xD7A3},
    CharacterRange{0xF900, 0xFAFF},   CharacterRange{0xFE30, 0xFE6F},
    CharacterRange{0xFF00, 0xFF60},   CharacterRange{0xFFE0, 0xFFE6},
    CharacterRange{0x1F300, 0x1F64F}, CharacterRange{0x1F680, 0x1F6FF},
    CharacterRange{0x1F900, 0x1F9FF}, CharacterRange{0x20000, 0x3FFFD},
};

// Characters that change the direction of the text after them, also after the end of a name.
constexpr std::array kTurning{CharacterRange{0x202A, 0x202E}, CharacterRange{0x2066, 0x2069}};

constexpr char32_t kEllipsis = 0x2026;

template <std::size_t N>
bool IsIn(const std::array<CharacterRange, N>& ranges, char32_t character) {
  return std::any_of(ranges.begin(), ranges.end(), [&](const CharacterRange& range) {
    return range.first <= character && character <= range.last;
  });
}

bool IsControl(char32_t character) {
  return character < 0x20 || (character >= 0x7F && character < 0xA0) || character == 0x2028 ||
         character == 0x2029;
}

// How many characters of the text fit.
std::size_t FittingLength(std::u32string_view text, std::size_t columns) {
  std::size_t length = 0;
  for (std::size_t taken = 0; length < text.size(); ++length) {
    taken += ColumnsOf(text[length]);
    if (taken > columns) break;
  }
  return length;
}

}  // namespace

std::u32string ShownCharacters(std::string_view text) {
  std::u32string characters;
  while (!text.empty()) {
    const auto [character, length, isValid] = virtualhub::DecodeUtf8(text);
    text.remove_prefix(length);
    if (IsIn(kTurning, character)) continue;
    characters += IsControl(character) ? U' ' : character;
  }
  return characters;
}

std::string ToUtf8(std::u32string_view text) {
  std::string bytes;
  for (const char32_t character : text) virtualhub::AppendUtf8(bytes, character);
  return bytes;
}

std::size_t ColumnsOf(char32_t character) {
  if (IsIn(kWithoutWidth, character)) return 0;
  return IsIn(kDoubleWidth, character) ? 2 : 1;
}

std::size_t ColumnsOf(std::u32string_view text) {
  std::size_t columns = 0;
  for (const char32_t character : text) columns += ColumnsOf(character);
  return columns;
}

std::u32string CutToColumns(std::u32string_view text, std::size_t columns) {
  if (ColumnsOf(text) <= columns) return std::u32string(text);
  if (columns == 0) return {};
  std::u32string_view kept = text.substr(0, FittingLength(text, columns - 1));
  while (kept.ends_with(U' ')) kept.remove_suffix(1);
  return std::u32string(kept) + kEllipsis;
}

std::u32string CutBeginning(std::u32string_view text, std::size_t columns) {
  if (ColumnsOf(text) <= columns) return std::u32string(text);
  if (columns == 0) return {};
  std::size_t begin = text.size();
  for (std::size_t taken = 1; begin > 0; --begin) {
    taken += ColumnsOf(text[begin - 1]);
    if (taken > columns) break;
  }
  return kEllipsis + std::u32string(text.substr(begin));
}

std::vector<std::u32string> WrapToColumns(std::u32string_view text, std::size_t columns,
                                          std::size_t lines) {
  std::vector<std::u32string> wrapped;
  while (!text.empty() && lines > 0) {
    const bool isLast = wrapped.size() + 1 == lines;
    if (isLast || ColumnsOf(text) <= columns) {
      wrapped.push_back(CutToColumns(text, columns));
      break;
    }
    // A character that does not fit by itself is taken nevertheless, so that there is an end.
    std::size_t length = std::max<std::size_t>(FittingLength(text, columns), 1);
    const std::size_t blank = text.rfind(U' ', length);
    if (blank != std::u32string_view::npos && blank > 0) length = blank;
    wrapped.emplace_back(CutToColumns(text.substr(0, length), columns));
    text.remove_prefix(length);
    text.remove_prefix(std::min(text.find_first_not_of(U' '), text.size()));
  }
  return wrapped;
}

}  // namespace qzhid
