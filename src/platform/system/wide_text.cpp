#include "platform/system/wide_text.h"

#include <algorithm>

namespace qzhid::platform {

namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kFirstSupplementary = 0x10000;

// Takes one code point off the front of a text that is not empty.
char32_t TakeCodePoint(std::string_view& text) {
  const auto lead = static_cast<unsigned char>(text.front());
  const std::size_t length = lead < 0x80 ? 1 : lead >> 5 == 6 ? 2 : lead >> 4 == 14 ? 3 : 4;
  if ((lead >= 0x80 && lead < 0xC2) || lead > 0xF4 || text.size() < length) {
    text.remove_prefix(1);
    return kReplacement;
  }
  char32_t code = length == 1 ? lead : lead & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[i]);
    if (next >> 6 != 2) {
      text.remove_prefix(i);
      return kReplacement;
    }
    code = code << 6 | (next & 0x3Fu);
  }
  text.remove_prefix(length);
  return code;
}

}  // namespace

std::wstring ToWide(std::string_view utf8) {
  std::wstring wide;
  wide.reserve(utf8.size());
  while (!utf8.empty()) {
    const char32_t code = TakeCodePoint(utf8);
    if (sizeof(wchar_t) == 2 && code >= kFirstSupplementary) {
      wide += static_cast<wchar_t>(0xD800 + ((code - kFirstSupplementary) >> 10));
      wide += static_cast<wchar_t>(0xDC00 + (code & 0x3FF));
    } else {
      wide += static_cast<wchar_t>(code);
    }
  }
  return wide;
}

std::wstring AsString(std::string_view utf8) { return ToWide(utf8) + L'\0'; }

std::wstring AsList(const std::vector<std::string>& utf8) {
  std::wstring list;
  for (const std::string& text : utf8) list += AsString(text);
  return list + L'\0';
}

std::size_t Utf16Units(const std::wstring& text) {
  return text.size() +
         static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](wchar_t unit) {
           return static_cast<char32_t>(unit) >= kFirstSupplementary;
         }));
}

}  // namespace qzhid::platform
