// SHA-256 (FIPS 180-4).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qzhid {

/// The digest as 64 hexadecimal digits in lower case.
std::string Sha256(const std::vector<std::uint8_t>& bytes);

}  // namespace qzhid
