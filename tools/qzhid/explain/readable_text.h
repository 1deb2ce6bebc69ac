// Text of unknown origin, made safe to show.
#pragma once

#include <string>
#include <string_view>

namespace qzhid {

/// The text in UTF-8: bytes that are none are taken for Latin letters of one byte, as in Western
/// Windows. In place of control characters, which a terminal might obey, it has blanks.
std::string ReadableText(std::string_view bytes);

}  // namespace qzhid
