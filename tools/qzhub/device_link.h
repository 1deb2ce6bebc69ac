// An imported device at work: the USB/IP protocol after the import, without any socket.
#pragma once

#include "qzhub/message_stream.h"
#include "qzhub/transfers.h"
#include "qzhub/usbip_wire.h"

namespace qzhub {

/// Carries out what the other end submits. Every submit command is answered exactly once: by its
/// own answer, or by that of the unlink command that took it back. The link ends when the device
/// leaves the bus.
class DeviceLink {
 public:
  using Connection = Transfers::Connection;

  DeviceLink(virtualhub::Machine& machine, const virtualhub::BusDevice& device, std::uint32_t devid,
             Connection connection)
      : devid_(devid), transfers_(machine, device, std::move(connection)) {}

  /// Takes bytes as they arrive, in pieces of any size. False when they are not the protocol or
  /// an answer could not be sent: the caller then ends the connection.
  bool Receive(ByteView bytes);

  /// As those of Transfers.
  void RequestEnd() { transfers_.RequestEnd(); }
  bool HasEnded() { return transfers_.HasEnded(); }
  bool IsOver() { return transfers_.IsOver(); }

 private:
  bool Take(ByteView message);
  bool Unlink(const Command& command);

  const std::uint32_t devid_;
  MessageStream stream_;
  Transfers transfers_;
};

}  // namespace qzhub
