// Conversions between UTF-8, UTF-16 and wide characters, which are code points here.
#include "platform/unicode.h"

#include <gtest/gtest.h>

#include "platform/platform.h"

namespace qzhid::platform {
namespace {

using namespace std::string_literals;

TEST(UnicodeTest, ACodePointHasOneFormInEachEncoding) {
  struct Case {
    std::wstring wide;
    std::string utf8;
    std::u16string utf16;
  };
  for (const Case& c :
       {Case{}, Case{L"a\0b"s, "a\0b"s, u"a\0b"s}, Case{L"\x7F", "\x7F", u"\x7F"},
        Case{L"\x80", "\xC2\x80", u"\x80"}, Case{L"\x7FF", "\xDF\xBF", u"\x7FF"},
        Case{L"\x800", "\xE0\xA0\x80", u"\x800"}, Case{L"\xD7FF", "\xED\x9F\xBF", u"\xD7FF"},
        Case{L"\xE000", "\xEE\x80\x80", u"\xE000"}, Case{L"\xFFFD", "\xEF\xBF\xBD", u"\xFFFD"},
        Case{L"\xFFFF", "\xEF\xBF\xBF", u"\xFFFF"},
        Case{L"\x10000", "\xF0\x90\x80\x80", u"\xD800\xDC00"},
        Case{L"\x10FFFF", "\xF4\x8F\xBF\xBF", u"\xDBFF\xDFFF"}}) {
    SCOPED_TRACE(::testing::PrintToString(c.utf8));
    EXPECT_EQ(c.wide, ToWide(c.utf8));
    EXPECT_EQ(c.wide, ToWide(c.utf16));
    EXPECT_EQ(c.utf8, ToUtf8(c.wide));
    EXPECT_EQ(c.utf8, ToNarrow(c.wide));
    EXPECT_EQ(c.utf16, ToUtf16(c.wide));
  }
}

TEST(UnicodeTest, EachByteOfNoValidSequenceIsReplaced) {
  const std::wstring x = L"\xFFFD";
  for (const auto& [utf8, wide] :
       {std::pair{"\xC0\xAF"s, x + x},          // overlong
        std::pair{"\xC1\xBF"s, x + x},          //
        std::pair{"\xE0\x80\xAF"s, x + x + x},  //
        std::pair{"\xF0\x8F\xBF\xBF"s, x + x + x + x},
        std::pair{"\xED\xA0\x80"s, x + x + x},          // surrogates
        std::pair{"\xED\xBF\xBF"s, x + x + x},          //
        std::pair{"\xF4\x90\x80\x80"s, x + x + x + x},  // too large
        std::pair{"\xF8\x88\x80\x80\x80"s, x + x + x + x + x}, std::pair{"\xFF"s, x},
        std::pair{"\x80"s, x}, std::pair{"a\xC3"s, L"a" + x},  // cut
        std::pair{"a\xE0\xA0"s, L"a" + x + x}, std::pair{"\xC3g"s, x + L"g"},
        std::pair{"\xF0\x90\x80\xC3\xA9"s, x + x + x + L"\xE9"}}) {
    EXPECT_EQ(wide, ToWide(utf8)) << ::testing::PrintToString(utf8);
  }
}

TEST(UnicodeTest, EachSurrogateOutsideAPairIsReplaced) {
  for (const auto& [utf16, wide] :
       {std::pair{u"\xD800"s, L"\xFFFD"s}, std::pair{u"\xDFFFg"s, L"\xFFFDg"s},
        std::pair{u"\xDBFFg"s, L"\xFFFDg"s}, std::pair{u"\xDC00\xD800"s, L"\xFFFD\xFFFD"s},
        std::pair{u"\xD800\xD800\xDC00"s, L"\xFFFD\x10000"s}}) {
    EXPECT_EQ(wide, ToWide(utf16));
  }
}

TEST(UnicodeTest, EachWideCharacterThatIsNoCodePointIsReplaced) {
  for (const std::uint32_t first : {0xD800u, 0xDFFFu, 0x110000u, 0xFFFFFFFFu}) {
    const std::wstring wide{static_cast<wchar_t>(first), wchar_t{0xDC00}, L'g'};
    EXPECT_EQ("\xEF\xBF\xBD\xEF\xBF\xBDg", ToUtf8(wide)) << first;
    EXPECT_EQ(u"\xFFFD\xFFFDg", ToUtf16(wide)) << first;
  }
}

}  // namespace
}  // namespace qzhid::platform
