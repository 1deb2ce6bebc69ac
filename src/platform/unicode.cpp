#include "platform/unicode.h"

namespace qzhid::platform {

namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kFirstOfPairs = 0x10000;
constexpr char32_t kLast = 0x10FFFF;

bool IsLowSurrogate(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

bool IsCodePoint(char32_t code) {
  return code <= kLast && !IsHighSurrogate(code) && !IsLowSurrogate(code);
}

// Take one code point off the front of a text that is not empty.

char32_t TakeCodePoint(std::string_view& utf8) {
  constexpr char32_t kFirstOfLength[] = {0, 0, 0x80, 0x800, kFirstOfPairs};
  const auto lead = static_cast<unsigned char>(utf8.front());
  const std::size_t length = lead < 0x80 ? 1 : lead >> 5 == 6 ? 2 : lead >> 4 == 14 ? 3 : 4;
  char32_t code = length == 1 ? lead : lead & (0x7Fu >> length);
  bool isValid = (length < 4 || lead >> 3 == 30) && utf8.size() >= length;
  for (std::size_t i = 1; isValid && i < length; ++i) {
    const auto next = static_cast<unsigned char>(utf8[i]);
    isValid = next >> 6 == 2;
    code = code << 6 | (next & 0x3Fu);
  }
  isValid = isValid && code >= kFirstOfLength[length] && IsCodePoint(code);
  utf8.remove_prefix(isValid ? length : 1);
  return isValid ? code : kReplacement;
}

template <class Unit>
char32_t TakeCodePoint(std::basic_string_view<Unit>& text) {
  const auto code = static_cast<char32_t>(text.front());
  const auto next = static_cast<char32_t>(text.size() > 1 ? text[1] : 0);
  const bool isPair = sizeof(Unit) == 2 && IsHighSurrogate(code) && IsLowSurrogate(next);
  text.remove_prefix(isPair ? 2 : 1);
  if (isPair) return kFirstOfPairs + ((code & 0x3FF) << 10) + (next & 0x3FF);
  return IsCodePoint(code) ? code : kReplacement;
}

void Append(std::string& utf8, char32_t code) {
  if (code < 0x80) {
    utf8 += static_cast<char>(code);
    return;
  }
  constexpr unsigned kLeadingBits[] = {0, 0xC0, 0xE0, 0xF0};
  const int trailing = code < 0x800 ? 1 : code < kFirstOfPairs ? 2 : 3;
  utf8 += static_cast<char>(kLeadingBits[trailing] | (code >> (6 * trailing)));
  for (int i = trailing - 1; i >= 0; --i) {
    utf8 += static_cast<char>(0x80 | ((code >> (6 * i)) & 0x3F));
  }
}

template <class Unit>
void Append(std::basic_string<Unit>& text, char32_t code) {
  if (sizeof(Unit) > 2 || code < kFirstOfPairs) {
    text += static_cast<Unit>(code);
    return;
  }
  text += static_cast<Unit>(0xD800 + ((code - kFirstOfPairs) >> 10));
  text += static_cast<Unit>(0xDC00 + (code & 0x3FF));
}

template <class To, class From>
std::basic_string<To> Convert(std::basic_string_view<From> from) {
  std::basic_string<To> to;
  to.reserve(from.size());
  while (!from.empty()) Append(to, TakeCodePoint(from));
  return to;
}

}  // namespace

std::wstring ToWide(std::string_view utf8) { return Convert<wchar_t>(utf8); }
std::wstring ToWide(std::u16string_view utf16) { return Convert<wchar_t>(utf16); }
std::string ToUtf8(std::wstring_view wide) { return Convert<char>(wide); }
std::u16string ToUtf16(std::wstring_view wide) { return Convert<char16_t>(wide); }

}  // namespace qzhid::platform
