// Numbers and bytes as text in hexadecimal, and text in HTML.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "virtualhub/base/bytes.h"

namespace tools {

using virtualhub::Bytes;
using virtualhub::ByteView;

/// Two digits a byte, in lower case.
std::string HexText(ByteView bytes);

/// Four digits, in lower case.
std::string HexText(std::uint16_t number);

/// A number of one to four digits, with or without "0x"; none for any other text.
std::optional<std::uint16_t> ParseHexNumber(std::string_view text);

/// Bytes of two digits each, such as "01a0" and "0xff"; blanks and commas between them do not
/// count. None for any other text.
std::optional<Bytes> ParseHexBytes(std::string_view text);

/// Text as a part of an HTML page, also in an attribute with double quotes.
std::string EscapeHtml(std::string_view text);

}  // namespace tools
