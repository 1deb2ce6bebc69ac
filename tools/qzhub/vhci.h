// This machine's virtual USB host controller: the kernel's vhci_hcd, driven through sysfs.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace qzhub {

struct VhciPort {
  std::uint32_t number;
  bool highSpeed;  ///< false: of the SuperSpeed root hub
  bool free;
  bool operator==(const VhciPort&) const = default;
};

/// The ports of a "status" file. Lines that do not describe a port are ignored.
std::vector<VhciPort> ParseVhciStatus(const std::string& text);

/// All failures are thrown as std::runtime_error with a remedy.
class Vhci {
 public:
  /// Fails when the kernel has no such controller.
  explicit Vhci(const std::filesystem::path& platform = "/sys/devices/platform");

  /// The first free high-speed port that is not in `except`.
  std::uint32_t FindFreePort(const std::set<std::uint32_t>& except) const;
  bool IsFree(std::uint32_t port) const;

  /// Plugs a high-speed device into a port; the other end of the connected stream socket is where
  /// the device answers. The kernel holds the socket from then on. False when the port was taken
  /// meanwhile.
  bool Attach(std::uint32_t port, int socket, std::uint32_t devid) const;

 private:
  std::vector<VhciPort> ReadPorts() const;

  std::filesystem::path folder_;
};

}  // namespace qzhub
