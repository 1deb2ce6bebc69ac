#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace virtualhub {

/// A place in the USB tree: a root hub (from 1) and the port numbers from there down. As text:
/// "3.1" is port 1 of the hub on port 3 of the first root hub, "2-3.1" the same below the second;
/// at most six ports, as USB has them.
struct PortPath {
  std::uint32_t root = 1;
  std::vector<std::uint32_t> ports;

  static std::optional<PortPath> Parse(const std::string& text);
  PortPath Parent() const;
  /// Whether a device here and one there cannot be at the same time: it is the same port, or one is
  /// on the way to the other.
  bool IsInTheWayOf(const PortPath& other) const;
  bool operator==(const PortPath&) const = default;
  /// Not <=>, which vectors do not have in LLVM's C++ library before version 17.
  bool operator<(const PortPath& other) const {
    return std::tie(root, ports) < std::tie(other.root, other.ports);
  }
};

}  // namespace virtualhub
