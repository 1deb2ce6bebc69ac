#pragma once

#include <mutex>

#include "qzhub/socket.h"

namespace qzhub {

/// What is on its way to a connected socket. Any thread may call it, and none waits for the other
/// end: what that does not take at once stays here until the next Flush, and so does what is sent
/// after Hold.
class Outbox {
 public:
  explicit Outbox(int socket) : socket_(socket) {}

  /// Both return false when the connection has failed.
  bool Send(virtualhub::ByteView message);
  bool Flush();
  void Hold();

  bool IsEmpty() const;
  /// Whether it has something that only another Flush sends.
  bool IsStuck() const;
  /// When the other end last took something, or else when it was first asked to.
  Deadline LastProgress() const;

 private:
  bool FlushLocked();

  const int socket_;
  mutable std::mutex mutex_;
  virtualhub::Bytes rest_;
  Deadline progress_{};
  bool failed_ = false, isHeld_ = false;
};

}  // namespace qzhub
