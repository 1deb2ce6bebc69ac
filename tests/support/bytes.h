// Bytes as tests write them down.
#pragma once

#include <algorithm>
#include <numeric>
#include <sstream>
#include <string>

#include "virtualhub/base/bytes.h"

namespace qzhid::test {

using virtualhub::Bytes;

/// The bytes of a text such as "40 C6 34 12".
inline Bytes Hex(const std::string& text) {
  std::istringstream in(text);
  Bytes bytes;
  for (unsigned byte = 0; in >> std::hex >> byte;) bytes.push_back(static_cast<std::uint8_t>(byte));
  return bytes;
}

/// The bytes first, first + 1, ...
inline Bytes CountUp(std::uint8_t first, std::size_t count) {
  Bytes bytes(count);
  std::iota(bytes.begin(), bytes.end(), first);
  return bytes;
}

/// An output report of channel 1 or 2 as the wire carries it: report ID, header, zeros up to the
/// data, data, zeros up to `length`.
inline Bytes Report(int channel, const Bytes& header, const Bytes& data = {},
                    std::size_t length = 321) {
  Bytes report(length, 0);
  report[0] = channel == 1 ? 0x00 : 0xF0;
  std::copy(header.begin(), header.end(), report.begin() + 1);
  std::copy(data.begin(), data.end(), report.begin() + (channel == 1 ? 65 : 64));
  return report;
}

}  // namespace qzhid::test
