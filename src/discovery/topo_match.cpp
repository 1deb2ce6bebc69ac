#include "discovery/topo_match.h"

#include <string>

#include "device/dev.h"
#include "discovery/dev_property.h"
#include "log/msg.h"
#include "platform/platform.h"

namespace qzhid {

namespace {

constexpr const char* kMatchTag = "CTopoMatch::Match";

bool MatchLocationPath(std::uint32_t node, const std::wstring& wanted) {
  CMsg& msg = CMsg::Instance();
  msg.Log(1, kMatchTag, "LocationPath Topo Match\n");
  const std::wstring path = CDevProperty::Instance().GetLocationPath(node);
  if (path == wanted) return true;
  msg.Log(1, kMatchTag, "CurrentDevLocationPath:%s\n", platform::ToNarrow(wanted).c_str());
  msg.Log(1, kMatchTag, "EnumDevLocationPath:%s\n", platform::ToNarrow(path).c_str());
  return false;
}

/// The last component of the location path of a port. ARM64 systems name the ports of the root hub
/// after their firmware's tables.
std::wstring PortText(std::int32_t level, std::int32_t port, platform::Architecture architecture) {
  const bool isFirmwarePort = level == 1 && architecture == platform::Architecture::Arm64;
  return (isFirmwarePort ? L"#ACPI(PRT" : L"#USB(") + std::to_wstring(port) + L")";
}

bool MatchPosition(std::uint32_t node, IDev& dev, platform::Architecture architecture) {
  CMsg::Instance().Log(1, kMatchTag, "Port & Level Topo Match\n");
  const auto level = static_cast<std::int32_t>(dev.GetPos1());
  if (level < 1) return true;
  const auto port = static_cast<std::int32_t>(dev.GetPos2());
  return CDevProperty::Instance().IsSuitTopology(level, node, PortText(level, port, architecture));
}

}  // namespace

bool CTopoMatch::Match(std::uint32_t node, IDev* dev) const {
  const platform::Architecture architecture = platform::NativeArchitecture();
  const std::wstring topology = dev->GetTopology();
  const bool isMatch = !topology.empty() ? MatchLocationPath(node, topology)
                                         : MatchPosition(node, *dev, architecture);
  if (isMatch) {
    CMsg::Instance().Log(0, kMatchTag, "match topology return true.\n");
  } else {
    CMsg::Instance().Log(1, kMatchTag, "match topology return false.\n");
  }
  return isMatch;
}

}  // namespace qzhid
