#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace virtualhub {

/// U+FFFD, in place of what is not valid.
inline constexpr char32_t kReplacement = 0xFFFD;

struct Utf8Character {
  char32_t character;  ///< kReplacement for a byte that belongs to no valid sequence
  std::size_t length;  ///< bytes that it takes; 1 when it is not valid
  bool isValid;
};

/// The first character of a text in UTF-8 that is not empty. Overlong forms, surrogates and what is
/// beyond U+10FFFF are not valid.
Utf8Character DecodeUtf8(std::string_view text);

void AppendUtf8(std::string& text, char32_t character);

}  // namespace virtualhub
