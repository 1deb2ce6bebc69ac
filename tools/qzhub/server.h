#pragma once

#include <chrono>
#include <list>
#include <vector>

#include "qzhub/client.h"
#include "qzhub/offer.h"
#include "qzhub/stop_event.h"

namespace qzhub {

/// A socket that listens, and what is spoken with those who connect to it.
struct Entrance {
  int listener;
  Client::Begin begin;
};

/// The entrance of USB/IP; it uses `offer`.
Entrance UsbipEntrance(int listener, Offer& offer);

/// Serves devices. One thread serves all clients and waits for none of them, so no client can
/// disturb another one, except that only one at a time can have a device. Each device that a client
/// has takes a thread more, which carries out the transfers.
class Server {
 public:
  static constexpr std::size_t kMostClients = 256;
  /// How long a client may take until it has a device or its answer, and later for taking anything
  /// of what is sent to it.
  static constexpr auto kPatience = std::chrono::seconds(5);

  Server(const StopEvent& stop, EventLog& log, std::chrono::milliseconds patience = kPatience)
      : stop_(stop), log_(log), patience_(patience) {}

  /// Serves the clients that come through the entrances, whose sockets do not block, until the end
  /// is requested. False when transfers do not end soon after that; then the destructor waits for
  /// them.
  bool Run(std::vector<Entrance> entrances);

 private:
  bool Await();
  const Entrance* EntranceOf(const void* owner) const;
  int TimeToNextLook() const;
  void Look();
  void Listen(bool isOn);
  bool Admit(const Entrance& entrance);
  void Serve(Client& client, bool isReady);
  void RemoveOver();
  bool EndAll();

  const StopEvent& stop_;
  EventLog& log_;
  const std::chrono::milliseconds patience_;
  const WakeEvent wake_;
  const Poller poller_;
  std::vector<Entrance> entrances_;
  bool listens_ = false;
  Deadline nextLook_{};
  std::list<Client> clients_;
};

}  // namespace qzhub
