// Kinds of options that commands of several tools have.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

namespace tools {

/// A vendor id, product id, version or the like: one to four hexadecimal digits, with or without
/// "0x".
CLI::Option* AddHexNumber(CLI::App& command, const std::string& name, std::uint16_t& number,
                          const std::string& meaning);

}  // namespace tools
