// Bytes in files and as text.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qzhid {

using Bytes = std::vector<std::uint8_t>;

/// Reads a whole file, "-" for standard input; false when it cannot be read.
bool ReadFile(const std::string& path, Bytes& bytes);

/// Replaces a file as a whole; throws Failure, and the old one stays, when that fails.
void WriteFile(const std::string& path, const Bytes& bytes);

/// The bytes that a command is given: hexadecimal words, or else what is in the file. Throws
/// Failure when there are none.
Bytes TakeBytes(const std::vector<std::string>& words, const std::string& file);

/// Two digits a byte, in lower case.
std::string HexText(const Bytes& bytes);

/// Lines of 16 bytes, each with the address of its first one.
std::string HexDump(const Bytes& bytes, std::uint32_t address);

}  // namespace qzhid
