// Conversions between UTF-8, UTF-16 and wide characters, which are UTF-16 units on Windows and code
// points elsewhere.
//
// All of them are strict: each byte or unit that is part of no valid sequence becomes U+FFFD. Not
// valid are overlong forms, surrogates outside a pair of UTF-16 units, code points above U+10FFFF,
// and sequences that are cut. Zeros are characters like all others.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qzhid::platform {

std::wstring ToWide(std::string_view utf8);
std::wstring ToWide(std::u16string_view utf16);
std::string ToUtf8(std::wstring_view wide);
std::u16string ToUtf16(std::wstring_view wide);

/// Whether the unit is the first of a pair.
constexpr bool IsHighSurrogate(std::uint32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }

}  // namespace qzhid::platform
