#pragma once

#include <optional>
#include <string>

#include "qzhub/device_link.h"
#include "qzhub/event_log.h"
#include "qzhub/exports.h"
#include "qzhub/outbox.h"
#include "qzhub/poller.h"
#include "qzhub/wake_event.h"

namespace qzhub {

/// What a client asks for; `busid` is that of an import.
struct Request {
  OpRequest kind;
  std::string busid;
};

/// One connection of the server: a request, its answer and, after an import, the link to the
/// device. Nothing here waits for the other end. An end that stays silent too long before an
/// import, or that does not take what is sent to it, is dropped.
class Client {
 public:
  /// What other threads have done for the client, it says through `wake`.
  Client(tools::Descriptor socket, std::chrono::milliseconds patience, const WakeEvent& wake,
         EventLog& log);

  const std::string& peer() const { return peer_; }
  /// Null while the client has no device.
  const Export* imported() const { return imported_; }

  /// Makes the poller wait for what comes next, on behalf of this client.
  void Watch(const Poller& poller);

  /// Does what can be done now, knowing whether the poller found the socket ready. The request once
  /// it is complete; answer it then, with Reply or Import.
  std::optional<Request> Work(bool isReady);

  /// The last message.
  void Reply(ByteView message);
  /// From now on the client has the device of that export.
  void Import(const Export& exported, virtualhub::Machine& machine,
              const virtualhub::BusDevice& device);

  /// Ends the connection for both sides.
  void End();
  /// Whether nothing is left to do: the connection has ended and no transfer is under way.
  bool IsOver();

 private:
  enum class Phase { Asking, Answering, Imported, Ended };

  std::uint32_t Awaited() const;
  Deadline AwaitedUntil() const;
  std::optional<Request> ReadRequest();
  void ReadCommands();
  void Drop(const std::string& reason);

  const tools::Descriptor socket_;
  const std::chrono::milliseconds patience_;
  const Deadline answeredBy_;
  const WakeEvent& wake_;
  EventLog& log_;
  const std::string peer_;
  Phase phase_ = Phase::Asking;
  std::uint32_t watched_ = 0;
  Bytes request_;
  Outbox outbox_;
  const Export* imported_ = nullptr;
  std::optional<DeviceLink> link_;
};

}  // namespace qzhub
