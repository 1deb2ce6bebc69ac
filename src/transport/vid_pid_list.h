// The list of vendor and product ids that a site accepts besides the family's own vendor id.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace qzhid {

/// (VID, PID) pairs.
using VidPidList = std::vector<std::pair<std::uint32_t, std::uint32_t>>;

/// The number after the first `marker` in `text`: up to four hexadecimal digits, as strtol reads
/// them; 0 when there is no marker or no digit.
std::uint32_t HexAfter(const std::string& text, const std::string& marker);

/// Reads a text file with lines that hold "VID:" and "PID:" in either order, each followed by a
/// hexadecimal number. Lines without two numbers other than 0 are skipped. Returns false when
/// the file cannot be opened; `list` is empty then.
bool ReadVidPidList(const std::string& path, VidPidList& list);

}  // namespace qzhid
