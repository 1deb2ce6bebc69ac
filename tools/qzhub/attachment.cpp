#include "qzhub/attachment.h"

#include <sys/socket.h>

#include <cerrno>
#include <set>
#include <system_error>
#include <thread>

#include "common/texts.h"
#include "qzhub/link_socket.h"

namespace qzhub {

namespace {

using namespace std::chrono_literals;
constexpr auto kBusInterval = 10ms;
constexpr auto kPortInterval = 5ms;
constexpr int kPortTries = 400;  // two seconds: the kernel frees a port in the background

}  // namespace

void Attachment::AttachIfPresent() {
  auto device = machine_.OnBus(export_.name);
  if (!device || (device_ && device_->hid == device->hid)) return;
  const auto before = device_ ? std::optional(device_->port) : std::nullopt;
  device_ = std::move(device);
  port_ = ChoosePort(before);
  Attach();
}

// Where it was; else the port of the host controller that is its port in the scenario, where no
// other device of the scenario can be while it is away; else any.
std::uint32_t Attachment::ChoosePort(const std::optional<virtualhub::PortPath>& before) {
  // Someone else may have taken it meanwhile.
  if (before == device_->port && vhci_.IsFree(*port_)) return *port_;
  std::set<std::uint32_t> left;
  if (before && before != device_->port) left.insert(*port_);
  const virtualhub::PortPath& place = device_->port;
  if (place.root == 1 && place.ports.size() == 1) {
    const std::uint32_t own = place.ports.front() - 1;
    if (!left.contains(own) && vhci_.IsFree(own)) return own;
  }
  return vhci_.FindFreePort(left);
}

void Attachment::Attach() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    throw std::system_error(errno, std::generic_category(), "socketpair");
  }
  socket_ = tools::Descriptor(ends[0]);
  const tools::Descriptor kernelEnd(ends[1]);
  const std::uint32_t devid = export_.place.Devid();
  while (!vhci_.Attach(*port_, kernelEnd.get(), devid)) port_ = vhci_.FindFreePort({*port_});
  const virtualhub::UsbIds ids = device_->ids;
  log_.Event("attached " + Label() + " devid=" + std::to_string(devid) +
             " vid=" + tools::HexText(ids.vid) + " pid=" + tools::HexText(ids.pid));
}

void Attachment::Serve() {
  do {
    AttachIfPresent();
    if (!socket_) continue;
    const LinkEnd end = RunLink(machine_, *device_, export_.place.Devid(), socket_.get(), stop_);
    if (end == LinkEnd::NotUsbip) log_.Remark(export_.name + ": not a message of USB/IP");
    Detach();
  } while (!stop_.WaitFor(kBusInterval));
}

std::string Attachment::Label() const {
  return export_.name + " port=" + std::to_string(*port_) + " busid=" + export_.place.Busid();
}

void Attachment::Detach() {
  socket_ = tools::Descriptor();
  for (int i = 0; i < kPortTries && !vhci_.IsFree(*port_); ++i) {
    std::this_thread::sleep_for(kPortInterval);
  }
  log_.Event("detached " + Label());
}

}  // namespace qzhub
