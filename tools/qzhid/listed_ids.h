// The file that names further hubs to the library.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

namespace qzhid {

struct ListedIds {
  std::uint16_t vid, pid;
};

/// The pairs in lines such as "VID:1234 PID:5678", read as the library reads them; what is in no
/// such line, or in no file, does not count.
std::vector<ListedIds> ReadListedIds(const std::filesystem::path& file);

}  // namespace qzhid
