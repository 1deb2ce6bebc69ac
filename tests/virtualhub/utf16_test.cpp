#include "virtualhub/base/utf16.h"

#include <gtest/gtest.h>

namespace virtualhub::test {

namespace {

using namespace std::string_view_literals;

struct Row {
  const char* what;
  std::string_view utf8;
  std::u16string_view utf16;
};

void ExpectRows(const std::vector<Row>& rows) {
  for (const Row& row : rows) EXPECT_EQ(row.utf16, ToUtf16(row.utf8)) << row.what;
}

TEST(Utf16Test, EachCharacterBecomesOneOrTwoUnits) {
  ExpectRows({{"nothing", "", u""},
              {"the zero", "a\0b"sv, u"a\0b"sv},
              {"the last of one byte", "\x7F", u"\x7F"},
              {"the first of two bytes", "\xC2\x80", u"\x80"},
              {"the last of two bytes", "\xDF\xBF", u"\u07FF"},
              {"the first of three bytes", "\xE0\xA0\x80", u"\u0800"},
              {"the last before the surrogates", "\xED\x9F\xBF", u"\uD7FF"},
              {"the first after the surrogates", "\xEE\x80\x80", u"\uE000"},
              {"the last of three bytes", "\xEF\xBF\xBF", u"\uFFFF"},
              {"the first of four bytes", "\xF0\x90\x80\x80", u"\xD800\xDC00"},
              {"the last", "\xF4\x8F\xBF\xBF", u"\xDBFF\xDFFF"}});
}

TEST(Utf16Test, EachByteOfAnInvalidSequenceIsReplaced) {
  ExpectRows({{"a continuation alone", "\x80", u"\uFFFD"},
              {"a lead alone", "\xC3", u"\uFFFD"},
              {"a lead before a letter", "\xC3z", u"\uFFFDz"},
              {"a sequence that is cut", "\xE2\x82", u"\uFFFD\uFFFD"},
              {"a cut sequence before a whole one", "\xE2\x82\xC3\xB6", u"\uFFFD\uFFFD\u00F6"},
              {"two bytes for one", "\xC0\x80", u"\uFFFD\uFFFD"},
              {"two bytes for the last of one", "\xC1\xBF", u"\uFFFD\uFFFD"},
              {"three bytes for two", "\xE0\x80\xAF", u"\uFFFD\uFFFD\uFFFD"},
              {"three bytes for the last of two", "\xE0\x9F\xBF", u"\uFFFD\uFFFD\uFFFD"},
              {"four bytes for three", "\xF0\x8F\xBF\xBF", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
              {"the first surrogate", "\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},
              {"the last surrogate", "\xED\xBF\xBF", u"\uFFFD\uFFFD\uFFFD"},
              {"a pair of surrogates", "\xED\xA0\x80\xED\xB0\x80",
               u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
              {"above the last character", "\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
              {"a lead of five bytes", "\xF8\x88\x80\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
              {"a byte that never is", "\xFF", u"\uFFFD"}});
}

}  // namespace

}  // namespace virtualhub::test
