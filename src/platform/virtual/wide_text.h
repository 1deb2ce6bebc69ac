#pragma once

#include <string>
#include <string_view>

namespace qzhid::platform {

/// Wide form of a UTF-8 text; what is no UTF-8 becomes the replacement character.
std::wstring ToWide(std::string_view utf8);

/// Number of UTF-16 units of a wide text.
std::size_t Utf16Units(const std::wstring& text);

}  // namespace qzhid::platform
