#include "platform/linux/string_descriptor.h"

namespace qzhid::platform {

namespace {

constexpr std::uint8_t kStringType = 3;
constexpr std::size_t kHeader = 2;  // length and type
constexpr wchar_t kReplacement = 0xFFFD;

using Units = std::vector<std::uint16_t>;

/// The UTF-16 units, little-endian, behind the header.
std::optional<Units> UnitsOf(const std::vector<std::uint8_t>& descriptor) {
  if (descriptor.size() < kHeader || descriptor[1] != kStringType) return std::nullopt;
  const std::size_t length = descriptor[0];
  if (length < kHeader || length > descriptor.size() || length % 2 != 0) return std::nullopt;
  Units units;
  for (std::size_t i = kHeader; i < length; i += 2) {
    units.push_back(static_cast<std::uint16_t>(descriptor[i] | descriptor[i + 1] << 8));
  }
  return units;
}

bool IsHighHalf(std::uint16_t unit) { return unit >> 10 == 0x36; }
bool IsLowHalf(std::uint16_t unit) { return unit >> 10 == 0x37; }

}  // namespace

std::optional<std::wstring> DecodeString(const std::vector<std::uint8_t>& descriptor) {
  const auto units = UnitsOf(descriptor);
  if (!units) return std::nullopt;
  std::wstring text;
  for (std::size_t i = 0; i < units->size() && (*units)[i] != 0; ++i) {
    const std::uint16_t unit = (*units)[i];
    if (IsHighHalf(unit) && i + 1 < units->size() && IsLowHalf((*units)[i + 1])) {
      ++i;
      text += static_cast<wchar_t>(0x10000 + ((unit & 0x3FFu) << 10) + ((*units)[i] & 0x3FFu));
    } else {
      text += IsHighHalf(unit) || IsLowHalf(unit) ? kReplacement : static_cast<wchar_t>(unit);
    }
  }
  return text;
}

std::optional<std::uint16_t> DecodeFirstLanguage(const std::vector<std::uint8_t>& descriptor) {
  const auto units = UnitsOf(descriptor);
  if (!units || units->empty()) return std::nullopt;
  return units->front();
}

}  // namespace qzhid::platform
