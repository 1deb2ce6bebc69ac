#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qzhid::platform {

/// Wide form of a UTF-8 text; what is no UTF-8 becomes the replacement character.
std::wstring ToWide(std::string_view utf8);

/// Texts as properties of device nodes hold them: a string with its terminator; a list of strings,
/// each with its terminator, and one terminator more.
std::wstring AsString(std::string_view utf8);
std::wstring AsList(const std::vector<std::string>& utf8);

/// Number of UTF-16 units of a wide text.
std::size_t Utf16Units(const std::wstring& text);

}  // namespace qzhid::platform
