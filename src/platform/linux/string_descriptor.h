// String descriptors as USB devices send them (USB 2.0, section 9.6.7).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qzhid::platform {

/// The text of a string descriptor, up to its first zero. No value when it is not a string
/// descriptor.
std::optional<std::wstring> DecodeString(const std::vector<std::uint8_t>& descriptor);

/// The first language that string descriptor 0 lists.
std::optional<std::uint16_t> DecodeFirstLanguage(const std::vector<std::uint8_t>& descriptor);

}  // namespace qzhid::platform
