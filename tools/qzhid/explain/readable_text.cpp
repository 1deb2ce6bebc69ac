#include "qzhid/explain/readable_text.h"

#include <cstdint>

namespace qzhid {

namespace {

/// How many bytes the character at the start has in UTF-8; 0 when it is none.
std::size_t CharacterLength(std::string_view text) {
  const auto first = static_cast<std::uint8_t>(text[0]);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
  std::uint32_t code = first & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    const auto next = static_cast<std::uint8_t>(text[i]);
    if ((next & 0xC0) != 0x80) return 0;
    code = code << 6 | (next & 0x3Fu);
  }
  const bool isTooLong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
  const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
  return isTooLong || isSurrogate || code > 0x10FFFF ? 0 : length;
}

/// A character below 0x800.
void AppendCharacter(std::string& text, std::uint8_t code) {
  text += static_cast<char>(0xC0 | code >> 6);
  text += static_cast<char>(0x80 | (code & 0x3F));
}

bool IsControl(std::string_view character) {
  const auto code = static_cast<std::uint8_t>(character[0]);
  if (code < 0x20 || code == 0x7F) return true;
  // Those from 0x80 to 0x9F.
  return code == 0xC2 && static_cast<std::uint8_t>(character[1]) < 0xA0;
}

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = CharacterLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

}  // namespace

std::string ReadableText(std::string_view bytes) {
  const bool isUtf8 = IsUtf8(bytes);
  std::string text;
  text.reserve(bytes.size());
  while (!bytes.empty()) {
    const std::size_t length = isUtf8 ? CharacterLength(bytes) : 1;
    const std::string_view character = bytes.substr(0, length);
    const auto code = static_cast<std::uint8_t>(character[0]);
    if (!isUtf8 && code >= 0xA0) {
      AppendCharacter(text, code);
    } else if (IsControl(character) || (!isUtf8 && code >= 0x80)) {
      text += ' ';
    } else {
      text += character;
    }
    bytes.remove_prefix(length);
  }
  return text;
}

}  // namespace qzhid
