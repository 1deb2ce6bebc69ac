#include "qzhub/link_socket.h"

#include <sys/socket.h>

#include "qzhub/device_link.h"
#include "qzhub/socket.h"

namespace qzhub {

namespace {

constexpr std::size_t kReadSize = 4096;
constexpr auto kSendTime = std::chrono::seconds(5);

}  // namespace

LinkEnd RunLink(virtualhub::Machine& machine, const virtualhub::BusDevice& device,
                std::uint32_t devid, int socket, const StopEvent& stop) {
  DeviceLink link(machine, device, devid,
                  {.send =
                       [socket](ByteView message) {
                         return SendAll(socket, message,
                                        std::chrono::steady_clock::now() + kSendTime);
                       },
                   .close = [socket] { shutdown(socket, SHUT_RDWR); }});
  Bytes buffer(kReadSize);
  bool good = true;
  while (good) {
    const std::size_t count = ReceiveSome(socket, buffer, stop);
    if (count == 0) break;
    good = link.Receive(ByteView(buffer).first(count));
  }
  shutdown(socket, SHUT_RDWR);
  return good || link.HasEnded() ? LinkEnd::Over : LinkEnd::NotUsbip;
}

}  // namespace qzhub
