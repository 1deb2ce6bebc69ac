#include "virtualhub/base/utf16.h"

#include "virtualhub/base/utf8.h"

namespace virtualhub {

std::u16string ToUtf16(std::string_view utf8) {
  std::u16string units;
  while (!utf8.empty()) {
    const Utf8Character next = DecodeUtf8(utf8);
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
    const bool isAlone = character >= 0xD800 && character <= 0xDFFF;
    AppendUtf8(text, isAlone ? kReplacement : character);
  }
  return text;
}

}  // namespace virtualhub
