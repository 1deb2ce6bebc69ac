#pragma once

#include <memory>
#include <string>

#include "qzhub/event_log.h"
#include "qzhub/outbox.h"
#include "qzhub/poller.h"
#include "qzhub/session.h"
#include "qzhub/wake_event.h"

namespace qzhub {

/// One connection of the server. Nothing here waits for the other end. An end that stays silent too
/// long before it has a device, or that does not take what is sent to it, is dropped.
class Client {
 public:
  using Begin = std::function<std::unique_ptr<Session>(Line)>;

  /// What other threads have done for the client, it says through `wake`.
  Client(tools::Descriptor socket, const Begin& begin, std::chrono::milliseconds patience,
         const WakeEvent& wake, EventLog& log);

  const std::string& peer() const { return peer_; }
  bool AwaitsDevice() const { return !isEnded_ && session_->AwaitsDevice(); }

  /// Makes the poller wait for what comes next, on behalf of this client.
  void Watch(const Poller& poller);

  /// Does what can be done now, knowing whether the poller found the socket ready.
  void Work(bool isReady);

  /// Ends the connection for both sides.
  void End();
  /// Whether nothing is left to do: the connection has ended and no transfer is under way.
  bool IsOver() { return isEnded_ && session_->IsOver(); }

 private:
  std::uint32_t Awaited() const;
  Deadline AwaitedUntil() const;
  void EndIfDone();
  void Read();
  void Drop(const std::string& reason);

  const tools::Descriptor socket_;
  const std::chrono::milliseconds patience_;
  const Deadline deviceBy_;
  EventLog& log_;
  const std::string peer_;
  bool isEnded_ = false;
  std::uint32_t watched_ = 0;
  Outbox outbox_;
  const std::unique_ptr<Session> session_;
};

}  // namespace qzhub
