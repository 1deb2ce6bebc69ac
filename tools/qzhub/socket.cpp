#include "qzhub/socket.h"

#include <netdb.h>
#include <netinet/in.h>
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
constexpr auto kMostWait = std::chrono::hours(1);

const sockaddr* Plain(const SocketAddress& address) {
  return reinterpret_cast<const sockaddr*>(&address.storage);
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

// The result of a call that does not wait.
std::optional<std::size_t> Done(ssize_t count) {
  if (count >= 0) return static_cast<std::size_t>(count);
  const bool mayTryAgain = errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK;
  return mayTryAgain ? std::optional<std::size_t>(0) : std::nullopt;
}

}  // namespace

int MillisecondsTo(Deadline deadline) {
  const auto now = std::chrono::steady_clock::now();
  const auto left = std::clamp<Deadline::duration>(deadline - now, {}, kMostWait);
  return static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(left).count());
}

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

std::optional<SocketAddress> SocketAddress::Following(std::size_t ports) const {
  SocketAddress next = *this;
  in_port_t& port = storage.ss_family == AF_INET6
                        ? reinterpret_cast<sockaddr_in6*>(&next.storage)->sin6_port
                        : reinterpret_cast<sockaddr_in*>(&next.storage)->sin_port;
  const std::size_t number = ntohs(port);
  if (number == 0) return next;
  if (number + ports > 0xFFFF) return std::nullopt;
  port = htons(static_cast<in_port_t>(number + ports));
  return next;
}

tools::Descriptor Listen(const SocketAddress& address) {
  tools::Descriptor listener(
      socket(address.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  const bool good = listener &&
                    setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) == 0 &&
                    bind(listener.get(), Plain(address), address.size) == 0 &&
                    listen(listener.get(), SOMAXCONN) == 0;
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

std::optional<std::size_t> ReceiveNow(int socket, MutableBytes buffer) {
  const ssize_t count = recv(socket, buffer.data(), buffer.size(), MSG_DONTWAIT);
  return count == 0 ? std::nullopt : Done(count);
}

std::optional<std::size_t> SendNow(int socket, ByteView bytes) {
  return Done(send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT));
}

std::size_t ReceiveSome(int socket, MutableBytes buffer, const StopEvent& stop) {
  std::optional<std::size_t> count = 0;
  while (count == 0u && WaitUntilReady(socket, POLLIN, kForEver, stop.fd())) {
    count = ReceiveNow(socket, buffer);
  }
  return count.value_or(0);
}

bool SendAll(int socket, ByteView bytes, Deadline deadline) {
  while (!bytes.empty()) {
    const std::optional<std::size_t> count = SendNow(socket, bytes);
    if (!count) return false;
    bytes = bytes.subspan(*count);
    if (*count == 0 && !WaitUntilReady(socket, POLLOUT, MillisecondsTo(deadline), -1)) return false;
  }
  return true;
}

}  // namespace qzhub
