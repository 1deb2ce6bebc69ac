#pragma once

#include <functional>
#include <stdexcept>
#include <string>

#include "virtualhub/base/bytes.h"

namespace qzhub {

/// Thrown when a client breaks the protocol, or wants what it cannot have. The text is for the
/// user.
struct ProtocolError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// A session's side of its connection.
struct Line {
  std::function<bool(virtualhub::ByteView)> send;  ///< false when that failed; any thread
  std::function<void()> wake;                      ///< calls for a Look; any thread
  std::string peer;                                ///< the client's address
};

/// What is spoken on one connection of the server. Nothing here waits.
class Session {
 public:
  Session() = default;
  virtual ~Session() = default;
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Takes bytes as they arrive. Throws ProtocolError; the connection then ends.
  virtual void Receive(virtualhub::ByteView bytes) = 0;

  /// Sees to what has happened to the device meanwhile.
  virtual void Look() {}
  /// Whether it awaits the device, and so wants to look often.
  virtual bool AwaitsDevice() const { return false; }

  /// Whether the client has a device, and so may be silent.
  virtual bool HasDevice() const = 0;
  /// Whether nothing more will be sent, so that the connection may end.
  virtual bool HasEnded() = 0;

  /// The connection has ended. It is over when no transfer is under way any more.
  virtual void RequestEnd() = 0;
  virtual bool IsOver() = 0;
};

}  // namespace qzhub
