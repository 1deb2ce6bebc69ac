#include "qzhub/socket.h"

#include <netdb.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace qzhub {

namespace {

using virtualhub::ByteView;
using virtualhub::MutableBytes;

constexpr int kForEver = -1;
constexpr int kBacklog = 16;

const sockaddr* Plain(const SocketAddress& address) {
  return reinterpret_cast<const sockaddr*>(&address.storage);
}

int MillisecondsTo(Deadline deadline) {
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
}

// Waits until the socket is ready; false at the time limit and on request.
bool WaitUntilReady(int socket, short events, int milliseconds, int stopFd) {
  pollfd waited[] = {{socket, events, 0}, {stopFd, POLLIN, 0}};
  int count = 0;
  do {
    count = poll(waited, 2, milliseconds);
  } while (count < 0 && errno == EINTR);
  return count > 0 && waited[1].revents == 0;
}

bool MayTryAgain() { return errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK; }

}  // namespace

std::optional<SocketAddress> SocketAddress::Parse(const std::string& text) {
  const std::size_t colon = std::min(text.rfind(':'), text.size());
  const std::string port = text.substr(std::min(colon + 1, text.size()));
  std::string host = text.substr(0, colon);
  const bool isV6 = host.starts_with('[') && host.ends_with(']');
  if (isV6) host = host.substr(1, host.size() - 2);
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  hints.ai_family = isV6 ? AF_INET6 : AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (host.empty() || port.empty() || port.size() > 5 ||
      port.find_first_not_of("0123456789") != std::string::npos || std::stoul(port) > 0xFFFF ||
      getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) {
    return std::nullopt;
  }
  SocketAddress address;
  std::memcpy(&address.storage, found->ai_addr, found->ai_addrlen);
  address.size = found->ai_addrlen;
  freeaddrinfo(found);
  return address;
}

std::string SocketAddress::Text() const {
  char host[NI_MAXHOST] = "?", port[NI_MAXSERV] = "0";
  getnameinfo(Plain(*this), size, host, sizeof(host), port, sizeof(port),
              NI_NUMERICHOST | NI_NUMERICSERV);
  const bool isV6 = storage.ss_family == AF_INET6;
  return (isV6 ? "[" + std::string(host) + "]:" : std::string(host) + ":") + port;
}

tools::Descriptor Listen(const SocketAddress& address) {
  tools::Descriptor listener(
      socket(address.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  const bool good = listener &&
                    setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) == 0 &&
                    bind(listener.get(), Plain(address), address.size) == 0 &&
                    listen(listener.get(), kBacklog) == 0;
  if (!good) {
    throw std::system_error(errno, std::generic_category(), "cannot listen on " + address.Text());
  }
  return listener;
}

SocketAddress LocalAddress(int socket) {
  SocketAddress address;
  getsockname(socket, reinterpret_cast<sockaddr*>(&address.storage), &address.size);
  return address;
}

SocketAddress PeerAddress(int socket) {
  SocketAddress address;
  getpeername(socket, reinterpret_cast<sockaddr*>(&address.storage), &address.size);
  return address;
}

bool ReceiveAll(int socket, MutableBytes buffer, Deadline deadline, const StopEvent& stop) {
  while (!buffer.empty()) {
    if (!WaitUntilReady(socket, POLLIN, MillisecondsTo(deadline), stop.fd())) return false;
    const ssize_t count = recv(socket, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (count == 0 || (count < 0 && !MayTryAgain())) return false;
    buffer = buffer.subspan(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  }
  return true;
}

std::size_t ReceiveSome(int socket, MutableBytes buffer, const StopEvent& stop) {
  while (WaitUntilReady(socket, POLLIN, kForEver, stop.fd())) {
    const ssize_t count = recv(socket, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (count >= 0) return static_cast<std::size_t>(count);
    if (!MayTryAgain()) return 0;
  }
  return 0;
}

bool SendAll(int socket, ByteView bytes, Deadline deadline) {
  while (!bytes.empty()) {
    const ssize_t count = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count >= 0) {
      bytes = bytes.subspan(static_cast<std::size_t>(count));
    } else if (!MayTryAgain() || !WaitUntilReady(socket, POLLOUT, MillisecondsTo(deadline), -1)) {
      return false;
    }
  }
  return true;
}

}  // namespace qzhub
