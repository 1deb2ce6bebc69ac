#include "common/texts.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace tools {

namespace {

// The whole text as a number in hexadecimal.
template <typename Number>
std::optional<Number> Parse(std::string_view digits) {
  Number number = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, number, 16);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

std::string_view WithoutPrefix(std::string_view text) {
  return text.starts_with("0x") || text.starts_with("0X") ? text.substr(2) : text;
}

}  // namespace

std::string HexText(ByteView bytes) {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
  }
  return text;
}

std::string HexText(std::uint16_t number) {
  std::array<std::uint8_t, 2> bytes{};
  virtualhub::PutBigEndian16(bytes, 0, number);
  return HexText(bytes);
}

std::optional<std::uint16_t> ParseHexNumber(std::string_view text) {
  constexpr std::size_t kMostDigits = 4;
  const std::string_view digits = WithoutPrefix(text);
  if (digits.size() > kMostDigits) return std::nullopt;
  return Parse<std::uint16_t>(digits);
}

std::optional<Bytes> ParseHexBytes(std::string_view text) {
  std::string spaced(text);
  std::erase_if(spaced, [](char letter) { return letter == ' ' || letter == ','; });
  const std::string_view digits = WithoutPrefix(spaced);
  if (digits.size() % 2 != 0) return std::nullopt;
  Bytes bytes;
  for (std::size_t at = 0; at < digits.size(); at += 2) {
    const auto byte = Parse<std::uint8_t>(digits.substr(at, 2));
    if (!byte) return std::nullopt;
    bytes.push_back(*byte);
  }
  return bytes;
}

std::string EscapeHtml(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

}  // namespace tools
