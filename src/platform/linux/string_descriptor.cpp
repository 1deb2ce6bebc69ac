#include "platform/linux/string_descriptor.h"

#include "platform/unicode.h"

namespace qzhid::platform {

namespace {

constexpr std::uint8_t kStringType = 3;
constexpr std::size_t kHeader = 2;  // length and type

/// The UTF-16 units, little-endian, after the header.
std::optional<std::u16string> UnitsOf(const std::vector<std::uint8_t>& descriptor) {
  if (descriptor.size() < kHeader || descriptor[1] != kStringType) return std::nullopt;
  const std::size_t length = descriptor[0];
  if (length < kHeader || length > descriptor.size() || length % 2 != 0) return std::nullopt;
  std::u16string units;
  for (std::size_t i = kHeader; i < length; i += 2) {
    units.push_back(static_cast<char16_t>(descriptor[i] | descriptor[i + 1] << 8));
  }
  return units;
}

}  // namespace

std::optional<std::wstring> DecodeString(const std::vector<std::uint8_t>& descriptor) {
  const auto units = UnitsOf(descriptor);
  if (!units) return std::nullopt;
  return ToWide(units->substr(0, units->find(u'\0')));
}

std::optional<std::uint16_t> DecodeFirstLanguage(const std::vector<std::uint8_t>& descriptor) {
  const auto units = UnitsOf(descriptor);
  if (!units || units->empty()) return std::nullopt;
  return units->front();
}

}  // namespace qzhid::platform
