#include "discovery/record_text.h"

#include <algorithm>

#include "platform/unicode.h"

namespace qzhid {

void StoreText(QZ_Utf16* field, std::size_t units, const std::wstring& text) {
  const std::u16string utf16 = platform::ToUtf16(text);
  std::size_t length = std::min(utf16.size(), units - 1);
  if (length < utf16.size() && length > 0 && platform::IsHighSurrogate(utf16[length - 1])) --length;
  std::copy_n(utf16.begin(), length, field);
}

std::wstring ReadText(const QZ_Utf16* field, std::size_t units) {
  return platform::ToWide(std::u16string_view(field, std::find(field, field + units, u'\0')));
}

}  // namespace qzhid
