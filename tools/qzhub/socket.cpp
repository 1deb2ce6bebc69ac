#include "qzhub/socket.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <system_error>

namespace qzhub {

namespace {

using virtualhub::ByteView;
using virtualhub::MutableBytes;

constexpr int kForEver = -1;
constexpr int kBacklog = 16;

struct NativeAddress {
  sockaddr_storage storage{};
  socklen_t size = sizeof(storage);
  sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
};

// False for a text that is no address in numbers.
bool ToNative(const SocketAddress& address, NativeAddress& native) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const std::string port = std::to_string(address.port);
  if (getaddrinfo(address.host.c_str(), port.c_str(), &hints, &found) != 0) return false;
  std::memcpy(&native.storage, found->ai_addr, found->ai_addrlen);
  native.size = found->ai_addrlen;
  freeaddrinfo(found);
  return true;
}

SocketAddress FromNative(NativeAddress& native) {
  char host[NI_MAXHOST] = "?", port[NI_MAXSERV] = "0";
  getnameinfo(native.get(), native.size, host, sizeof(host), port, sizeof(port),
              NI_NUMERICHOST | NI_NUMERICSERV);
  return {host, static_cast<std::uint16_t>(std::atoi(port))};
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
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos) return std::nullopt;
  SocketAddress address{text.substr(0, colon)};
  if (address.host.starts_with('[') && address.host.ends_with(']')) {
    address.host = address.host.substr(1, address.host.size() - 2);
  } else if (address.host.find(':') != std::string::npos) {
    return std::nullopt;
  }
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, address.port);
  NativeAddress native;
  if (error != std::errc() || stop != end || !ToNative(address, native)) return std::nullopt;
  return address;
}

std::string SocketAddress::Text() const {
  const bool isV6 = host.find(':') != std::string::npos;
  return (isV6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

FileDescriptor Listen(const SocketAddress& address) {
  NativeAddress native;
  const int on = 1;
  bool good = ToNative(address, native);
  if (!good) errno = EINVAL;
  FileDescriptor listener(
      good ? socket(native.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0) : -1);
  good = listener && setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) == 0 &&
         bind(listener.get(), native.get(), native.size) == 0 &&
         listen(listener.get(), kBacklog) == 0;
  if (!good) {
    throw std::system_error(errno, std::generic_category(), "cannot listen on " + address.Text());
  }
  return listener;
}

SocketAddress LocalAddress(int socket) {
  NativeAddress native;
  getsockname(socket, native.get(), &native.size);
  return FromNative(native);
}

SocketAddress PeerAddress(int socket) {
  NativeAddress native;
  getpeername(socket, native.get(), &native.size);
  return FromNative(native);
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
