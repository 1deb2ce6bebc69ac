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

// Here 'x' is a character that was replaced.
TEST(UnicodeTest, WhatIsNoCodePointIsReplacedByteByByteAndUnitByUnit) {
  const auto plain = [](const std::wstring& wide) {
    std::wstring text;
    for (const wchar_t unit : wide) text += unit == 0xFFFD ? L'x' : unit;
    return text;
  };
  // Overlong sequences, surrogates, numbers that are too large, and sequences that are cut.
  const std::pair<std::string, std::wstring> bytes[] = {{"\xC0\xAF", L"xx"},
                                                        {"\xC1\xBF", L"xx"},
                                                        {"\xE0\x80\xAF", L"xxx"},
                                                        {"\xF0\x8F\xBF\xBF", L"xxxx"},
                                                        {"\xED\xA0\x80", L"xxx"},
                                                        {"\xED\xBF\xBF", L"xxx"},
                                                        {"\xF4\x90\x80\x80", L"xxxx"},
                                                        {"\xF8\x88\x80\x80\x80", L"xxxxx"},
                                                        {"\xFF", L"x"},
                                                        {"\x80", L"x"},
                                                        {"a\xC3", L"ax"},
                                                        {"a\xE0\xA0", L"axx"},
                                                        {"\xC3g", L"xg"},
                                                        {"\xF0\x90\x80\xC3\xA9", L"xxx\xE9"}};
  for (const auto& [utf8, wide] : bytes) {
    EXPECT_EQ(wide, plain(ToWide(utf8))) << ::testing::PrintToString(utf8);
  }
  const std::pair<std::u16string, std::wstring> units[] = {{u"\xD800", L"x"},
                                                           {u"\xDFFFg", L"xg"},
                                                           {u"\xDBFFg", L"xg"},
                                                           {u"\xDC00\xD800", L"xx"},
                                                           {u"\xD800\xD800\xDC00", L"x\x10000"}};
  for (const auto& [utf16, wide] : units) EXPECT_EQ(wide, plain(ToWide(utf16)));
  for (const std::uint32_t first : {0xD800u, 0xDFFFu, 0x110000u, 0xFFFFFFFFu}) {
    const std::wstring wide{static_cast<wchar_t>(first), wchar_t{0xDC00}, L'g'};
    EXPECT_EQ("\xEF\xBF\xBD\xEF\xBF\xBDg", ToUtf8(wide)) << first;
    EXPECT_EQ(u"\xFFFD\xFFFDg", ToUtf16(wide)) << first;
  }
}

}  // namespace
}  // namespace qzhid::platform
