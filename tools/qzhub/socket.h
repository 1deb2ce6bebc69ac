// Stream sockets, with deadlines and with an end on request.
#pragma once

#include <sys/socket.h>

#include <chrono>
#include <optional>
#include <string>

#include "common/descriptor.h"
#include "qzhub/stop_event.h"
#include "virtualhub/base/bytes.h"

namespace qzhub {

using Deadline = std::chrono::steady_clock::time_point;

/// For poll: 0 when the deadline is over, at most an hour.
int MillisecondsTo(Deadline deadline);

/// An address in numbers with its port.
struct SocketAddress {
  /// "127.0.0.1:3240" or "[::1]:3240", port 0 for any that is free; none for anything else.
  static std::optional<SocketAddress> Parse(const std::string& text);
  std::string Text() const;
  /// The one with a port that much higher; none when there is no such port. Port 0 stays 0.
  std::optional<SocketAddress> Following(std::size_t ports) const;

  sockaddr_storage storage{};
  socklen_t size = sizeof(storage);
};

/// Does not block. Throws std::system_error with the address in its text.
tools::Descriptor Listen(const SocketAddress& address);
/// The address that a socket listens on, and the one at the other end of a connection.
SocketAddress LocalAddress(int socket);
SocketAddress PeerAddress(int socket);

/// What can be taken or sent without waiting, maybe 0 bytes; none when the connection is over.
std::optional<std::size_t> ReceiveNow(int socket, virtualhub::MutableBytes buffer);
std::optional<std::size_t> SendNow(int socket, virtualhub::ByteView bytes);

/// Takes what is there, waiting for the first byte; 0 at the end of the stream and on request.
std::size_t ReceiveSome(int socket, virtualhub::MutableBytes buffer, const StopEvent& stop);
/// False when the other end has gone or has not taken everything at the deadline.
bool SendAll(int socket, virtualhub::ByteView bytes, Deadline deadline);

}  // namespace qzhub
