#pragma once

#include <future>
#include <list>
#include <mutex>

#include "common/descriptor.h"
#include "qzhub/event_log.h"
#include "qzhub/exports.h"
#include "qzhub/stop_event.h"
#include "virtualhub/bus/machine.h"

namespace qzhub {

/// A USB/IP server. Each client has its own thread, and no client can disturb another one, except
/// that only one at a time can import a device. A connection ends after its first request, unless
/// that imports a device; the request must be complete in time.
class Server {
 public:
  Server(virtualhub::Machine& machine, std::vector<Export> exports, const StopEvent& stop,
         EventLog& log)
      : machine_(machine),
        exports_(std::move(exports)),
        imported_(exports_.size()),
        stop_(stop),
        log_(log) {}

  /// Serves the clients of a listening socket until the end is requested and all have gone.
  void Run(int listener);

 private:
  void Admit(tools::Descriptor socket);
  void Serve(int socket);
  void List(int socket);
  void Import(int socket, const std::string& peer, ByteView busidField);

  virtualhub::Machine& machine_;
  const std::vector<Export> exports_;
  std::vector<std::mutex> imported_;  // by export; held while a client has it
  const StopEvent& stop_;
  EventLog& log_;
  std::list<std::future<void>> clients_;
};

}  // namespace qzhub
