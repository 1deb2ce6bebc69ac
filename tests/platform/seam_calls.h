// Calls of the seam as tests make them.
#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace qzhid::platform::test {

/// The system's code of a failure; 0 after success.
inline int CodeOf(const Status& status) { return status ? 0 : static_cast<int>(status.code); }

inline std::vector<DevInst> PresentNodes() {
  NodeSet set;
  EXPECT_EQ(0, CodeOf(OpenNodeSet(HidClassGuid(), set)));
  std::vector<DevInst> nodes;
  DevInst node = 0;
  for (std::uint32_t i = 0; EnumNode(set, i, node); ++i) nodes.push_back(node);
  return nodes;
}

/// The path of a present node.
inline std::wstring PathOf(DevInst node) {
  const std::vector<DevInst> nodes = PresentNodes();
  const auto index = std::find(nodes.begin(), nodes.end(), node) - nodes.begin();
  NodeSet set;
  DeviceInterface found;
  std::wstring path;
  EXPECT_EQ(0, CodeOf(OpenNodeSet(HidClassGuid(), set)));
  EXPECT_EQ(0, CodeOf(FirstInterface(set, static_cast<std::uint32_t>(index), found)));
  EXPECT_EQ(0, CodeOf(InterfacePath(set, found, path)));
  EXPECT_EQ(node, found.devInst);
  return path;
}

/// 0 when there is none.
inline DevInst ParentOf(DevInst node) {
  DevInst parent = 0;
  return GetParent(node, parent) ? parent : 0;
}

/// "error CODE" when there is none. The strings of a list are separated by blanks.
inline std::string TextOf(DevInst node, TextProperty property) {
  std::wstring text;
  const Status status = GetTextProperty(node, property, 4096, text);
  if (!status) return "error " + std::to_string(status.code);
  std::string narrow = ToNarrow(text);
  std::replace(narrow.begin(), narrow.end(), '\0', ' ');
  return narrow.substr(0, narrow.find_last_not_of(' ') + 1);
}

}  // namespace qzhid::platform::test
