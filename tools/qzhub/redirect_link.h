// A device at the other end of a connection: the usbredir protocol, without any socket.
#pragma once

#include <optional>
#include <string>

#include "qzhub/message_stream.h"
#include "qzhub/redirect_wire.h"
#include "qzhub/transfers.h"

namespace qzhub {

/// Connects the guest at the other end with one device of a machine, for as long as the connection
/// lasts: when the device leaves the bus, the guest sees it unplugged, and plugged in again when it
/// is back. Every transfer is answered exactly once while the device is there.
class RedirectLink {
 public:
  struct Connection {
    std::function<bool(ByteView)> send;              ///< one whole message; any thread
    std::function<void()> wake;                      ///< calls for a Look; any thread
    std::function<void(const std::string&)> remark;  ///< for the user
  };

  /// Says hello. The machine must have a device of that name.
  RedirectLink(virtualhub::Machine& machine, std::string device, Connection connection);

  /// Takes bytes as they arrive, in pieces of any size. False when they are not the protocol: the
  /// caller then ends the connection.
  bool Receive(ByteView bytes);

  /// Whether the guest has said hello.
  bool IsGreeted() const { return shared_.has_value(); }

  /// Shows a guest that has said hello whether the device is there. To be called when the link
  /// calls for it, and every few milliseconds while the device is away.
  void Look();
  bool AwaitsDevice() const { return !transfers_; }

  /// As those of Transfers.
  void RequestEnd();
  bool IsOver() { return !transfers_ || transfers_->IsOver(); }

 private:
  struct Handler;

  bool Take(ByteView bytes);
  void Connect(const virtualhub::BusDevice& device);
  bool Send(redirect::Type type, ByteView body) const;
  Bytes Description() const;

  bool Greet(const redirect::Message& message);
  bool Acknowledge(const redirect::Message& message);
  bool HearRejection(const redirect::Message& message);
  bool Ignore(const redirect::Message& message);
  bool Reset(const redirect::Message& message);
  bool SetConfiguration(const redirect::Message& message);
  bool GetConfiguration(const redirect::Message& message);
  bool SetAltSetting(const redirect::Message& message);
  bool GetAltSetting(const redirect::Message& message);
  bool RefuseIsochronous(const redirect::Message& message);
  bool StartInterrupts(const redirect::Message& message);
  bool StopInterrupts(const redirect::Message& message);
  bool Cancel(const redirect::Message& message);
  bool CarryPacket(const redirect::Message& message);

  bool Submit(Transfer transfer);
  bool Request(const redirect::Message& message, const Bytes& setup, redirect::Type answerType,
               const Bytes& answerBody);

  virtualhub::Machine& machine_;
  const std::string name_;
  const Connection connection_;
  MessageStream stream_;
  redirect::Shared shared_;
  bool awaitsAck_ = false;
  std::uint64_t resets_ = 0;
  std::optional<virtualhub::BusDevice> device_;
  std::optional<Transfers> transfers_;  // none while the guest has no device
};

}  // namespace qzhub
