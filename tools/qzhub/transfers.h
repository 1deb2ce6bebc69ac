// The transfers of a device on behalf of a host at the other end of a connection, whatever the
// protocol of that connection is.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "virtualhub/bus/usb_device.h"

namespace qzhub {

using virtualhub::Bytes;
using virtualhub::ByteView;

/// A transfer as a host submits it.
struct Transfer {
  enum class Kind {
    Control,
    PortReset,     ///< of the port that the device is plugged into
    InterruptIn,   ///< the endpoint has nothing to send: it ends only when that halts
    InterruptOut,  ///< a report
    NoEndpoint,    ///< of an endpoint that the device does not have
  };
  /// Two transfers that are not reported yet have different ids.
  struct Id {
    std::uint64_t number = 0;
    bool isOurs = false;  ///< chosen by this end, not by the other one
    bool operator==(const Id&) const = default;
  };
  /// The message that reports a status (virtualhub::UrbStatus) and the data of an IN transfer;
  /// empty if nobody wants to know.
  using Report = std::function<Bytes(std::int32_t status, ByteView answer)>;

  Id id;
  Kind kind = Kind::NoEndpoint;
  Report report;
  Bytes setup{};         ///< of a control transfer, 8 bytes
  bool in = false;       ///< device to host
  Bytes data{};          ///< of an OUT transfer
  std::size_t room = 0;  ///< for the data of an IN transfer
};

/// Carries out what is submitted, one transfer after the other, and takes further ones meanwhile.
/// Every transfer is reported exactly once, unless it is taken back.
///
/// It ends when the device leaves the bus: a transfer under way is then reported with a protocol
/// error, and the rest is dropped.
class Transfers {
 public:
  /// The connection below. It is called from any thread, one call at a time; none must call back.
  struct Connection {
    std::function<bool(ByteView)> send;  ///< one whole message; false when that failed
    std::function<void()> close;         ///< when this ends by itself
    std::function<void()> over = [] {};  ///< the last call: nothing is under way any more
  };

  Transfers(virtualhub::Machine& machine, const virtualhub::BusDevice& device,
            Connection connection);
  /// Ends, and waits for a transfer under way; close the connection first.
  ~Transfers();
  Transfers(const Transfers&) = delete;
  Transfers& operator=(const Transfers&) = delete;

  /// False when the id is in use, when this has ended, or when a report could not be sent. Too many
  /// transfers at once are reported with kUrbNoMemory.
  bool Submit(Transfer transfer);

  /// Takes a transfer back that is not reported yet: it will not be, and is not begun. `answer`
  /// makes the message that is then sent, if it is not empty, from the report of that transfer;
  /// from null when there is none. False when this has ended or the message could not be sent.
  bool TakeBack(Transfer::Id id, const std::function<Bytes(const Transfer::Report*)>& answer);

  /// Takes and starts no more transfers. Does not wait for the one under way.
  void RequestEnd();

  /// Whether it has ended, by itself or on request.
  bool HasEnded();
  /// Whether it has ended and no transfer is under way.
  bool IsOver();

 private:
  bool Send(const Bytes& message) { return message.empty() || connection_.send(message); }
  const Transfer* Find(Transfer::Id id) const;
  void Work();
  void CarryOut(Transfer transfer, std::unique_lock<std::mutex>& lock);
  virtualhub::Result Run(const Transfer& transfer, Bytes& answer);
  virtualhub::Result Control(const Transfer& transfer, Bytes& answer);
  void StallIdle();
  void End();

  const Connection connection_;
  virtualhub::UsbDevice device_;  // of the worker

  // Messages are sent while the mutex is held, so that their order on the wire is that of the
  // decisions: what is taken back too late is answered after its report.
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Transfer> waiting_;
  std::deque<Transfer> idle_;           // of the interrupt IN endpoint
  const Transfer* underWay_ = nullptr;  // also null when it was taken back meanwhile
  bool ended_ = false;
  bool over_ = false;
  std::thread worker_;
};

}  // namespace qzhub
