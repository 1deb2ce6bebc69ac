// Properties of device nodes, and the tests that the matchers and finders make on them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qzhid {

/// Process-wide; used by one thread at a time.
class CDevProperty {
 public:
  static CDevProperty& Instance();

  CDevProperty(const CDevProperty&) = delete;
  CDevProperty& operator=(const CDevProperty&) = delete;

  /// Whether any of the node's hardware ids contains the pattern, letter case included.
  bool HasHardwareId(std::uint32_t node, const std::wstring& pattern);

  /// The node's first location path; empty when it has none.
  std::wstring GetLocationPath(std::uint32_t node);

  /// Whether the node sits at that level below its root hub (1: on the root hub itself) and, from
  /// level 2 on, its port number occurs in `portText`, a component such as "#USB(12)".
  bool IsSuitTopology(std::int32_t level, std::uint32_t node, const std::wstring& portText);

 private:
  CDevProperty() = default;

  static std::int32_t CurrentLevel(std::uint32_t node);
  static bool CurrentPort(std::uint32_t node, std::int32_t& port);
};

/// The strings of a zero-separated list, up to the first empty one or the end of the text.
std::vector<std::wstring> SplitList(const std::wstring& list);

/// The text up to its first zero.
std::wstring FirstString(const std::wstring& list);

}  // namespace qzhid
