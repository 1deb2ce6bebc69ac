#include "discovery/vid_pid_match.h"

#include <cwchar>
#include <string>

#include "device/dev.h"
#include "discovery/dev_property.h"
#include "log/msg.h"

namespace qzhid {

bool CVidPidMatch::Match(std::uint32_t node, IDev* dev) const {
  constexpr const char* kTag = "CVidPidMatch::Match";
  std::uint32_t pid = 0;
  std::uint32_t vid = 0;
  for (std::size_t index = 0; dev->GetVidPid(pid, vid, index); ++index) {
    wchar_t pattern[40] = {};
    std::swprintf(pattern, sizeof(pattern) / sizeof(pattern[0]), L"VID_%04X&PID_%04X", vid, pid);
    if (CDevProperty::Instance().HasHardwareId(node, pattern)) {
      CMsg::Instance().Log(0, kTag, "match id return true.\n");
      return true;
    }
  }
  CMsg::Instance().Log(1, kTag, "match id return false.\n");
  return false;
}

}  // namespace qzhid
