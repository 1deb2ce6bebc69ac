#include "qzhid/listed_ids.h"

#include <cstdlib>
#include <fstream>
#include <string>

namespace qzhid {

namespace {

std::uint16_t IdAfter(const std::string& line, const std::string& marker) {
  constexpr std::size_t kDigits = 4;
  const std::size_t at = line.find(marker);
  if (at == std::string::npos) return 0;
  const std::string digits = line.substr(at + marker.size(), kDigits);
  return static_cast<std::uint16_t>(std::strtol(digits.c_str(), nullptr, 16));
}

}  // namespace

std::vector<ListedIds> ReadListedIds(const std::filesystem::path& file) {
  std::vector<ListedIds> all;
  std::ifstream lines(file);
  for (std::string line; std::getline(lines, line);) {
    const ListedIds ids{IdAfter(line, "VID:"), IdAfter(line, "PID:")};
    if (ids.vid != 0 && ids.pid != 0) all.push_back(ids);
  }
  return all;
}

}  // namespace qzhid
