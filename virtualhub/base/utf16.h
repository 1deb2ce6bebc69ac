#pragma once

#include <string>
#include <string_view>

namespace virtualhub {

/// UTF-8 as UTF-16, characters beyond the Basic Multilingual Plane as surrogate pairs. Each byte
/// that belongs to no valid sequence becomes U+FFFD.
std::u16string ToUtf16(std::string_view utf8);

/// And back. Each half of a surrogate pair without the other one becomes U+FFFD.
std::string ToUtf8(std::u16string_view utf16);

}  // namespace virtualhub
