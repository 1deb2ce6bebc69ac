#include "qzhub/vhci.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>

#include "common/descriptor.h"
#include "qzhub/usbip_wire.h"

namespace qzhub {

namespace {

constexpr unsigned kNoDevice = 4;  // state of a port that nothing is attached to

}  // namespace

std::vector<VhciPort> ParseVhciStatus(const std::string& text) {
  std::vector<VhciPort> ports;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string hub;
    VhciPort port{};
    unsigned state = 0;
    if (!(fields >> hub >> port.number >> state) || (hub != "hs" && hub != "ss")) continue;
    port.highSpeed = hub == "hs";
    port.free = state == kNoDevice;
    ports.push_back(port);
  }
  return ports;
}

Vhci::Vhci(const std::filesystem::path& platform) : folder_(platform / "vhci_hcd.0") {
  if (!std::filesystem::exists(folder_ / "status")) {
    throw std::runtime_error("this kernel has no virtual USB host controller (no folder " +
                             folder_.string() + "); load its module with: modprobe vhci-hcd");
  }
}

// The first controller's folder speaks for all: status is its own table, status.1 and so on are
// those of the others.
std::vector<VhciPort> Vhci::ReadPorts() const {
  std::vector<VhciPort> ports;
  std::filesystem::path file = folder_ / "status";
  for (int next = 1; std::filesystem::exists(file); ++next) {
    std::ifstream stream(file);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    const std::vector<VhciPort> more = ParseVhciStatus(text);
    ports.insert(ports.end(), more.begin(), more.end());
    file = folder_ / ("status." + std::to_string(next));
  }
  return ports;
}

std::uint32_t Vhci::FindFreePort(const std::set<std::uint32_t>& except) const {
  for (const VhciPort& port : ReadPorts()) {
    if (port.highSpeed && port.free && !except.contains(port.number)) return port.number;
  }
  throw std::runtime_error(
      "no high-speed port of the virtual USB host controller is free; \"usbip port\" lists what "
      "is attached, and \"usbip detach -p PORT\" frees a port");
}

bool Vhci::IsFree(std::uint32_t port) const {
  const std::vector<VhciPort> ports = ReadPorts();
  return std::find(ports.begin(), ports.end(), VhciPort{port, true, true}) != ports.end();
}

bool Vhci::Attach(std::uint32_t port, int socket, std::uint32_t devid) const {
  const std::string file = (folder_ / "attach").string();
  const tools::Descriptor attach(open(file.c_str(), O_WRONLY | O_CLOEXEC));
  std::ostringstream line;
  line << port << ' ' << socket << ' ' << devid << ' ' << kHighSpeed;
  const std::string text = line.str();
  if (attach && write(attach.get(), text.data(), text.size()) >= 0) return true;
  if (errno == EBUSY) return false;
  const bool forbidden = errno == EACCES || errno == EPERM;
  throw std::system_error(
      errno, std::generic_category(),
      "cannot attach through " + file + (forbidden ? " (attaching takes root: try sudo)" : ""));
}

}  // namespace qzhub
