#include "platform/system/property_text.h"

#include "platform/unicode.h"

namespace qzhid::platform {

std::wstring AsString(std::string_view utf8) { return ToWide(utf8) + L'\0'; }

std::wstring AsList(const std::vector<std::string>& utf8) {
  std::wstring list;
  for (const std::string& text : utf8) list += AsString(text);
  return list + L'\0';
}

std::size_t Utf16Units(std::wstring_view text) { return ToUtf16(text).size(); }

}  // namespace qzhid::platform
