#include "virtualhub/base/utf16.h"

#include <cstdint>

namespace virtualhub {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

struct Decoded {
  char32_t character;
  std::size_t length;  // bytes that it takes
};

bool IsSurrogate(char32_t character) { return character >= 0xD800 && character <= 0xDFFF; }

// The first character of a text that is not empty.
Decoded DecodeFirst(std::string_view text) {
  static constexpr char32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};  // by continuation bytes
  const auto lead = static_cast<std::uint8_t>(text[0]);
  if (lead < 0x80) return {lead, 1};
  const std::size_t more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
  if (lead < 0xC0 || lead > 0xF7 || text.size() <= more) return {kReplacement, 1};
  char32_t character = lead & (0x3Fu >> more);
  for (std::size_t i = 1; i <= more; ++i) {
    const auto byte = static_cast<std::uint8_t>(text[i]);
    if ((byte & 0xC0) != 0x80) return {kReplacement, 1};
    character = character << 6 | (byte & 0x3Fu);
  }
  const bool valid =
      character >= kSmallest[more] && character <= 0x10FFFF && !IsSurrogate(character);
  return valid ? Decoded{character, more + 1} : Decoded{kReplacement, 1};
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

}  // namespace

std::u16string ToUtf16(std::string_view utf8) {
  std::u16string units;
  while (!utf8.empty()) {
    const Decoded next = DecodeFirst(utf8);
    utf8.remove_prefix(next.length);
    if (next.character < 0x10000) {
      units += static_cast<char16_t>(next.character);
    } else {
      const char32_t offset = next.character - 0x10000;
      units += static_cast<char16_t>(0xD800 + (offset >> 10));
      units += static_cast<char16_t>(0xDC00 + (offset & 0x3FF));
    }
  }
  return units;
}

std::string ToUtf8(std::u16string_view utf16) {
  std::string text;
  for (std::size_t i = 0; i < utf16.size(); ++i) {
    auto character = static_cast<char32_t>(utf16[i]);
    const bool isPair =
        (character & 0xFC00) == 0xD800 && i + 1 < utf16.size() && (utf16[i + 1] & 0xFC00) == 0xDC00;
    if (isPair) character = 0x10000 + ((character & 0x3FF) << 10) + (utf16[++i] & 0x3FFu);
    AppendUtf8(text, IsSurrogate(character) ? kReplacement : character);
  }
  return text;
}

}  // namespace virtualhub
