// Text in columns of a terminal: characters are one or two columns wide, or have no width.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qzhid {

/// The characters of a UTF-8 text that comes from outside. Control characters, which a terminal or
/// a page could obey, become blanks, and each byte that is not UTF-8 becomes U+FFFD.
std::u32string ShownCharacters(std::string_view text);

std::string ToUtf8(std::u32string_view text);

/// How many columns a terminal gives to a character: 0, 1 or 2.
std::size_t ColumnsOf(char32_t character);
std::size_t ColumnsOf(std::u32string_view text);

/// The text in at most that many columns; when it is cut, an ellipsis ends it.
std::u32string CutToColumns(std::u32string_view text, std::size_t columns);

/// The same for names that differ at their end: what is cut is the beginning.
std::u32string CutBeginning(std::u32string_view text, std::size_t columns);

/// The text on at most that many lines, broken at blanks where possible; the last line is cut.
std::vector<std::u32string> WrapToColumns(std::u32string_view text, std::size_t columns,
                                          std::size_t lines);

}  // namespace qzhid
