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

}  // namespace virtualhub
