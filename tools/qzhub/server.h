#pragma once

#include <chrono>
#include <list>
#include <vector>

#include "qzhub/client.h"
#include "qzhub/exports.h"
#include "qzhub/stop_event.h"

namespace qzhub {

/// A USB/IP server. One thread serves all clients and waits for none of them, so no client can
/// disturb another one, except that only one at a time can import a device. Each imported device
/// has a thread more, which carries out the transfers.
///
/// A connection ends after its first request, unless that imports a device.
class Server {
 public:
  static constexpr std::size_t kMostClients = 256;
  /// How long a client may take for its request and the answer, and later for taking anything of
  /// what is sent to it.
  static constexpr auto kPatience = std::chrono::seconds(5);

  Server(virtualhub::Machine& machine, std::vector<Export> exports, const StopEvent& stop,
         EventLog& log, std::chrono::milliseconds patience = kPatience)
      : machine_(machine),
        exports_(std::move(exports)),
        stop_(stop),
        log_(log),
        patience_(patience) {}

  /// Serves the clients of a listening socket that does not block, until the end is requested.
  /// False when transfers do not end soon after that; then the destructor waits for them.
  bool Run(int listener);

 private:
  int TimeToNextLook() const;
  void Look();
  void Listen(bool isOn);
  void Admit();
  void Serve(Client& client, bool isReady);
  Bytes List();
  void Import(Client& client, const std::string& busid);
  void RemoveOver();
  bool EndAll();

  virtualhub::Machine& machine_;
  const std::vector<Export> exports_;
  const StopEvent& stop_;
  EventLog& log_;
  const std::chrono::milliseconds patience_;
  const WakeEvent wake_;
  const Poller poller_;
  int listener_ = -1;
  bool listens_ = false;
  Deadline nextLook_{};
  std::list<Client> clients_;
};

}  // namespace qzhub
