// Bytes that a user gives, and bytes that are shown.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/texts.h"

namespace qzhid {

using tools::Bytes;

/// Replaces a file as a whole; throws Failure, and the old one stays, when that fails.
void SaveBytes(const std::string& path, const Bytes& bytes);

/// The bytes that a command is given: hexadecimal words, or else what is in the file ("-" for
/// standard input). Throws Failure when there are none.
Bytes TakeBytes(const std::vector<std::string>& words, const std::string& file);

/// Lines of 16 bytes, each with the address of its first one.
std::string HexDump(const Bytes& bytes, std::uint32_t address);

}  // namespace qzhid
