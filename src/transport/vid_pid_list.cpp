#include "transport/vid_pid_list.h"

#include <cstdlib>
#include <fstream>

#include "platform/platform.h"

namespace qzhid {

std::uint32_t HexAfter(const std::string& text, const std::string& marker) {
  const std::size_t position = text.find(marker);
  if (position == std::string::npos) return 0;
  const std::string digits = text.substr(position + marker.size(), 4);
  return static_cast<std::uint32_t>(std::strtol(digits.c_str(), nullptr, 16));
}

bool ReadVidPidList(const std::string& path, VidPidList& list) {
  list.clear();
  std::ifstream file(platform::FilePath(path));
  if (!file.is_open()) return false;
  for (std::string line; std::getline(file, line);) {
    const std::uint32_t vid = HexAfter(line, "VID:");
    const std::uint32_t pid = HexAfter(line, "PID:");
    if (vid != 0 && pid != 0) list.emplace_back(vid, pid);
  }
  return true;
}

}  // namespace qzhid
