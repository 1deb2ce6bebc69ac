#include "virtualhub/bus/port_path.h"

#include <algorithm>
#include <charconv>

namespace virtualhub {

namespace {

constexpr std::uint32_t kLastPort = 127;
constexpr std::size_t kMostPorts = 6;  // USB 2.0, 4.1.1: seven tiers, the root hub included
constexpr std::uint32_t kMostRoots = 8;

// Takes a number from 1 to `most` off the front of the text.
std::optional<std::uint32_t> TakeNumber(std::string_view& text, std::uint32_t most) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || number == 0 || number > most) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

}  // namespace

std::optional<PortPath> PortPath::Parse(const std::string& text) {
  PortPath path;
  std::string_view rest = text;
  if (text.find('-') != std::string::npos) {
    const auto root = TakeNumber(rest, kMostRoots);
    if (!root || rest.empty() || rest.front() != '-') return std::nullopt;
    path.root = *root;
    rest.remove_prefix(1);
  }
  for (;;) {
    const auto port = TakeNumber(rest, kLastPort);
    if (!port || path.ports.size() == kMostPorts) return std::nullopt;
    path.ports.push_back(*port);
    if (rest.empty()) return path;
    if (rest.front() != '.') return std::nullopt;
    rest.remove_prefix(1);
  }
}

bool PortPath::IsInTheWayOf(const PortPath& other) const {
  const auto [here, there] =
      std::mismatch(ports.begin(), ports.end(), other.ports.begin(), other.ports.end());
  return root == other.root && (here == ports.end() || there == other.ports.end());
}

PortPath PortPath::Parent() const { return {root, {ports.begin(), ports.end() - 1}}; }

}  // namespace virtualhub
