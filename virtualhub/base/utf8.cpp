#include "virtualhub/base/utf8.h"

#include <cstdint>

namespace virtualhub {

namespace {

constexpr Utf8Character kInvalid{kReplacement, 1, false};

bool IsSurrogate(char32_t character) { return character >= 0xD800 && character <= 0xDFFF; }

}  // namespace

Utf8Character DecodeUtf8(std::string_view text) {
  static constexpr char32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};  // by continuation bytes
  const auto lead = static_cast<std::uint8_t>(text[0]);
  if (lead < 0x80) return {lead, 1, true};
  const std::size_t more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
  if (lead < 0xC0 || lead > 0xF7 || text.size() <= more) return kInvalid;
  char32_t character = lead & (0x3Fu >> more);
  for (std::size_t i = 1; i <= more; ++i) {
    const auto byte = static_cast<std::uint8_t>(text[i]);
    if ((byte & 0xC0) != 0x80) return kInvalid;
    character = character << 6 | (byte & 0x3Fu);
  }
  const bool isValid =
      character >= kSmallest[more] && character <= 0x10FFFF && !IsSurrogate(character);
  return isValid ? Utf8Character{character, more + 1, true} : kInvalid;
}

void AppendUtf8(std::string& text, char32_t character) {
  if (character < 0x80) {
    text += static_cast<char>(character);
    return;
  }
  const int more = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
  text += static_cast<char>(0xFF00u >> (more + 1) | character >> (6 * more));
  for (int i = more - 1; i >= 0; --i) {
    text += static_cast<char>(0x80 | (character >> (6 * i) & 0x3F));
  }
}

}  // namespace virtualhub
