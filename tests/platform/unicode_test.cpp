// Conversions between UTF-8, UTF-16 and wide characters, which are code points here.
#include "platform/unicode.h"

#include <gtest/gtest.h>

#include "platform/platform.h"

namespace qzhid::platform {
namespace {

using namespace std::string_literals;

TEST(UnicodeTest, ACodePointHasOneFormInEachEncoding) {
  const std::tuple<std::wstring, std::string, std::u16string> rows[] = {
      {L"", "", u""},
      {L"a\0b"s, "a\0b"s, u"a\0b"s},
      {L"\x7F", "\x7F", u"\x7F"},
      {L"\x80", "\xC2\x80", u"\x80"},
      {L"\x7FF", "\xDF\xBF", u"\x7FF"},
      {L"\x800", "\xE0\xA0\x80", u"\x800"},
      {L"\xD7FF", "\xED\x9F\xBF", u"\xD7FF"},
      {L"\xE000", "\xEE\x80\x80", u"\xE000"},
      {L"\xFFFD", "\xEF\xBF\xBD", u"\xFFFD"},
      {L"\xFFFF", "\xEF\xBF\xBF", u"\xFFFF"},
      {L"\x10000", "\xF0\x90\x80\x80", u"\xD800\xDC00"},
      {L"\x10FFFF", "\xF4\x8F\xBF\xBF", u"\xDBFF\xDFFF"}};
  for (const auto& [wide, utf8, utf16] : rows) {
    EXPECT_EQ(std::tuple(wide, wide, utf8, utf8, utf16),
              std::tuple(ToWide(utf8), ToWide(utf16), ToUtf8(wide), ToNarrow(wide), ToUtf16(wide)));
  }
}

TEST(UnicodeTest, WhatIsNoCodePointIsReplacedByteByByteAndUnitByUnit) {
  // Overlong sequences, surrogates, numbers that are too large, and sequences that are cut.
  for (const std::string utf8 :
       {"\xC0\xAF", "\xC1\xBF", "\xE0\x80\xAF", "\xF0\x8F\xBF\xBF", "\xED\xA0\x80", "\xED\xBF\xBF",
        "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80", "\xFF", "\x80", "\xC3", "\xE0\xA0"}) {
    const std::wstring replaced(utf8.size(), L'\xFFFD');
    EXPECT_EQ(L'a' + replaced + L'g', ToWide('a' + utf8 + 'g')) << ::testing::PrintToString(utf8);
    EXPECT_EQ(replaced, ToWide(utf8)) << ::testing::PrintToString(utf8);
  }
  EXPECT_EQ(L"\xFFFD\xFFFD\xFFFD\xE9", ToWide("\xF0\x90\x80\xC3\xA9"s));
  EXPECT_EQ(L"\xFFFD", ToWide(u"\xD800"s));
  EXPECT_EQ(L"\xFFFDg\xFFFDg", ToWide(u"\xDFFFg\xDBFFg"s));
  EXPECT_EQ(L"\xFFFD\xFFFD\x10000", ToWide(u"\xDC00\xD800\xD800\xDC00"s));
  for (const std::uint32_t first : {0xD800u, 0xDFFFu, 0x110000u, 0xFFFFFFFFu}) {
    const std::wstring wide{static_cast<wchar_t>(first), wchar_t{0xDC00}, L'g'};
    EXPECT_EQ("\xEF\xBF\xBD\xEF\xBF\xBDg", ToUtf8(wide)) << first;
    EXPECT_EQ(u"\xFFFD\xFFFDg", ToUtf16(wide)) << first;
  }
}

}  // namespace
}  // namespace qzhid::platform
