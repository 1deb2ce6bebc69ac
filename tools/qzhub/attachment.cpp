#include "qzhub/attachment.h"

#include <sys/socket.h>

#include <cerrno>
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

std::uint32_t Attachment::ChoosePort(const std::optional<virtualhub::PortPath>& before) {
  if (!port_) return vhci_.FindFreePort({});
  if (before != device_->port) return vhci_.FindFreePort({*port_});
  // Someone else may have taken it while the device was away.
  return vhci_.IsFree(*port_) ? *port_ : vhci_.FindFreePort({});
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
