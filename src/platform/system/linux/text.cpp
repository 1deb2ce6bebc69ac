#include "platform/platform.h"

namespace qzhid::platform {

namespace {

constexpr char kDefaultCharacter = '?';
constexpr char32_t kLastCodePoint = 0x10FFFF;

bool IsSurrogate(char32_t code) { return code >= 0xD800 && code <= 0xDFFF; }

void AppendUtf8(std::string& text, char32_t code) {
  if (code < 0x80) {
    text += static_cast<char>(code);
    return;
  }
  const int trailing = code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
  constexpr unsigned kLeadingBits[] = {0, 0xC0, 0xE0, 0xF0};
  text += static_cast<char>(kLeadingBits[trailing] | (code >> (6 * trailing)));
  for (int i = trailing - 1; i >= 0; --i) {
    text += static_cast<char>(0x80 | ((code >> (6 * i)) & 0x3F));
  }
}

}  // namespace

std::string ToNarrow(const std::wstring& text) {
  std::string narrow;
  narrow.reserve(text.size());
  for (const wchar_t unit : text) {
    const auto code = static_cast<char32_t>(unit);
    if (code > kLastCodePoint || IsSurrogate(code)) {
      narrow += kDefaultCharacter;
    } else {
      AppendUtf8(narrow, code);
    }
  }
  return narrow;
}

char PathSeparator() { return '/'; }

}  // namespace qzhid::platform
