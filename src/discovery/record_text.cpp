#include "discovery/record_text.h"

namespace qzhid {

namespace {

// Where wide characters are UTF-16 units already, pairs are copied like all other units.
constexpr bool kJoinsPairs = sizeof(wchar_t) > sizeof(QZ_Utf16);

bool IsHigh(char32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLow(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

}  // namespace

void StoreText(QZ_Utf16* field, std::size_t units, const std::wstring& text) {
  std::size_t used = 0;
  for (const wchar_t unit : text) {
    const auto code = static_cast<char32_t>(unit);
    const bool isPair = code > 0xFFFF;
    const bool needsTwo = isPair || (!kJoinsPairs && IsHigh(code));
    if (used + (needsTwo ? 2 : 1) >= units) break;
    if (isPair) field[used++] = static_cast<QZ_Utf16>(0xD7C0 + (code >> 10));
    field[used++] = static_cast<QZ_Utf16>(isPair ? 0xDC00 + (code & 0x3FF) : code);
  }
}

std::wstring ReadText(const QZ_Utf16* field, std::size_t units) {
  std::wstring text;
  for (std::size_t i = 0; i < units && field[i] != 0; ++i) {
    auto code = static_cast<char32_t>(field[i]);
    const auto next = static_cast<char32_t>(i + 1 < units ? field[i + 1] : 0);
    if (kJoinsPairs && IsHigh(code) && IsLow(next)) {
      code = 0x10000 + ((code - 0xD800) << 10) + (next - 0xDC00);
      ++i;
    }
    text += static_cast<wchar_t>(code);
  }
  return text;
}

}  // namespace qzhid
