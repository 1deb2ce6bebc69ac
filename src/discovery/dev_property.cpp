#include "discovery/dev_property.h"

#include <algorithm>
#include <cwchar>

#include "log/msg.h"
#include "platform/platform.h"

namespace qzhid {

namespace {

constexpr const char* kTopologyTag = "CDevProperty::IsSuitTopology";
constexpr std::size_t kListCapacity = 2048;     // bytes
constexpr std::size_t kLocationCapacity = 400;  // bytes
constexpr std::size_t kDeviceIdCapacity = 200;  // characters
constexpr const wchar_t* kRootMarker = L"ROOT";

std::int32_t Decimal(const std::wstring& text) {
  return static_cast<std::int32_t>(std::wcstol(text.c_str(), nullptr, 10));
}

std::wstring ReadText(std::uint32_t node, platform::TextProperty property) {
  std::wstring text;
  if (!platform::GetTextProperty(node, property, kListCapacity, text)) text.clear();
  return text;
}

/// The number between '(' and ')'.
std::int32_t PortOf(const std::wstring& portText) {
  const std::size_t open = portText.find(L'(');
  if (open == std::wstring::npos) return 0;
  const std::size_t close = portText.find(L')', open);
  return Decimal(portText.substr(open + 1, close - open - 1));
}

}  // namespace

CDevProperty& CDevProperty::Instance() {
  static CDevProperty instance;
  return instance;
}

bool CDevProperty::HasHardwareId(std::uint32_t node, const std::wstring& pattern) {
  const auto ids = SplitList(ReadText(node, platform::TextProperty::HardwareIds));
  return std::any_of(ids.begin(), ids.end(), [&](const std::wstring& id) {
    return id.find(pattern) != std::wstring::npos;
  });
}

std::wstring CDevProperty::GetLocationPath(std::uint32_t node) {
  return FirstString(ReadText(node, platform::TextProperty::LocationPaths));
}

bool CDevProperty::IsSuitTopology(std::int32_t level, std::uint32_t node,
                                  const std::wstring& portText) {
  const std::int32_t currentLevel = CurrentLevel(node);
  std::int32_t port = 0;
  if (!CurrentPort(node, port)) return false;
  if (currentLevel == level) {
    // On the root hub any port will do.
    if (level == 1 || portText.find(std::to_wstring(port)) != std::wstring::npos) return true;
  }
  CMsg::Instance().Log(0, kTopologyTag,
                       "Match Level Or Port Failed,Cur Level:%d Port:%d, Match Level:%d Port:%d\n",
                       currentLevel, port, level, PortOf(portText));
  return false;
}

std::int32_t CDevProperty::CurrentLevel(std::uint32_t node) {
  std::int32_t level = 1;
  for (platform::DevInst parent = 0; platform::GetParent(node, parent); node = parent) {
    std::wstring id;
    if (const auto status = platform::GetDeviceIdW(parent, kDeviceIdCapacity, id); !status) {
      CMsg::Instance().Log(3, kTopologyTag, "Get Device ID Failed,Error Code:%d\n",
                           static_cast<int>(status.code));
      continue;
    }
    if (id.find(kRootMarker) != std::wstring::npos) break;
    ++level;
  }
  return level;
}

bool CDevProperty::CurrentPort(std::uint32_t node, std::int32_t& port) {
  std::wstring text;
  const auto status = platform::GetTextProperty(node, platform::TextProperty::LocationInfo,
                                                kLocationCapacity, text);
  if (!status) {
    CMsg::Instance().Log(3, kTopologyTag, "Get Location Info Failed,Error Code:%d\n",
                         static_cast<int>(status.code));
    return false;
  }
  const std::wstring location = FirstString(text);
  const std::size_t marker = location.find(L'#');
  port = Decimal(location.substr(marker == std::wstring::npos ? 0 : marker + 1, 4));
  if (port == 0) {
    CMsg::Instance().Log(3, kTopologyTag, L"Get Port Failed!! Location Info:%ls\n",
                         location.c_str());
  }
  return port != 0;
}

std::vector<std::wstring> SplitList(const std::wstring& list) {
  std::vector<std::wstring> strings;
  for (std::size_t begin = 0; begin < list.size();) {
    std::wstring text = FirstString(list.substr(begin));
    if (text.empty()) break;
    begin += text.size() + 1;
    strings.push_back(std::move(text));
  }
  return strings;
}

std::wstring FirstString(const std::wstring& list) { return list.substr(0, list.find(L'\0')); }

}  // namespace qzhid
