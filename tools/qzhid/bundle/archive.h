// Archives that any system opens, without compression.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "virtualhub/base/bytes.h"

namespace qzhid {

struct ArchiveEntry {
  std::string name;  ///< with / between folders; at most 100 bytes
  std::string text;
};

virtualhub::Bytes MakeZip(const std::vector<ArchiveEntry>& entries, std::time_t now);
virtualhub::Bytes MakeTarGz(const std::vector<ArchiveEntry>& entries, std::time_t now);

}  // namespace qzhid
