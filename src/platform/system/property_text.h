// Texts as device nodes hold them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qzhid::platform {

/// A property's text: a string with its terminator; a list of strings, each with its terminator,
/// and one terminator more.
std::wstring AsString(std::string_view utf8);
std::wstring AsList(const std::vector<std::string>& utf8);

/// Number of UTF-16 units of a wide text.
std::size_t Utf16Units(std::wstring_view text);

}  // namespace qzhid::platform
