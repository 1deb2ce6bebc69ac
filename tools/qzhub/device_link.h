// An imported device at work: the USB/IP protocol after the import, without any socket.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <thread>

#include "qzhub/usbip_wire.h"
#include "virtualhub/bus/usb_device.h"

namespace qzhub {

/// Carries out what the other end submits, one control transfer after the other, and takes further
/// commands meanwhile. Every submit command is answered exactly once: by its own answer, or by that
/// of the unlink command that took it back.
///
/// The link ends when the device leaves the bus: a transfer under way is then answered with a
/// protocol error, and the rest is dropped with the connection.
class DeviceLink {
 public:
  /// The connection below. The link calls these from any thread, one call at a time; none must call
  /// the link.
  struct Connection {
    std::function<bool(ByteView)> send;  ///< one whole message; false when that failed
    std::function<void()> close;         ///< makes the connection end for both sides
    std::function<void()> over = [] {};  ///< the last call: nothing is under way any more
  };

  DeviceLink(virtualhub::Machine& machine, const virtualhub::BusDevice& device, std::uint32_t devid,
             Connection connection);
  /// Ends the link and waits for a transfer under way; close the connection first.
  ~DeviceLink();
  DeviceLink(const DeviceLink&) = delete;
  DeviceLink& operator=(const DeviceLink&) = delete;

  /// Takes bytes as they arrive, in pieces of any size. False when they are not the protocol or
  /// an answer could not be sent: the caller then ends the connection.
  bool Receive(ByteView bytes);

  /// Takes no more commands and starts no more transfers. Does not wait for the one under way.
  void RequestEnd();

  /// Whether the link has ended, by itself or on request.
  bool HasEnded();
  /// Whether it has ended and no transfer is under way.
  bool IsOver();

 private:
  struct Transfer {
    Command command;
    Bytes data;
  };

  bool Take(const Command& command, ByteView payload);
  bool Submit(const Command& command, ByteView payload);
  bool Unlink(const Command& command);
  bool IsOutstanding(std::uint32_t sequence) const;

  void Work();
  void CarryOut(const Transfer& transfer, std::unique_lock<std::mutex>& lock);
  virtualhub::Result RunTransfer(const Transfer& transfer, Bytes& answer);
  virtualhub::Result Control(const Transfer& transfer, Bytes& answer);
  void StallIdle();
  void End();

  const std::uint32_t devid_;
  const Connection connection_;
  virtualhub::UsbDevice device_;  // of the worker
  Bytes received_;                // of Receive

  // Answers are sent while the mutex is held, so that their order on the wire is that of the
  // decisions: an unlink that came too late is answered after its victim.
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Transfer> waiting_;
  std::set<std::uint32_t> idle_;           // transfers of the interrupt endpoint
  std::optional<std::uint32_t> underWay_;  // none when it was unlinked meanwhile
  bool ended_ = false;
  bool over_ = false;
  std::thread worker_;
};

}  // namespace qzhub
