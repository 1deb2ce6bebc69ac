#pragma once

#include <optional>
#include <string>

#include "common/descriptor.h"
#include "qzhub/event_log.h"
#include "qzhub/exports.h"
#include "qzhub/stop_event.h"
#include "qzhub/vhci.h"
#include "virtualhub/bus/machine.h"

namespace qzhub {

/// Keeps one device attached to this machine's virtual USB host controller for as long as it is on
/// the scenario's bus: detached when it leaves, attached again when it is back, on the same port
/// unless it came back elsewhere.
///
/// A device that the host's side detaches stays detached until it has been off the bus.
class Attachment {
 public:
  Attachment(virtualhub::Machine& machine, Export exported, const Vhci& vhci, const StopEvent& stop,
             EventLog& log)
      : machine_(machine), export_(std::move(exported)), vhci_(vhci), stop_(stop), log_(log) {}

  /// Attaches the device if it is on the bus; Serve then answers for it. Throws
  /// std::runtime_error with a remedy.
  void AttachIfPresent();

  /// Answers for the device, and attaches it again whenever it comes back, until the end is
  /// requested. Throws as AttachIfPresent.
  void Serve();

 private:
  void Attach();
  void Detach();
  std::string Label() const;
  std::uint32_t ChoosePort(const std::optional<virtualhub::PortPath>& before);

  virtualhub::Machine& machine_;
  const Export export_;
  const Vhci& vhci_;
  const StopEvent& stop_;
  EventLog& log_;
  std::optional<virtualhub::BusDevice> device_;  // as it was attached last
  std::optional<std::uint32_t> port_;
  tools::Descriptor socket_;  // none while it is not attached
};

}  // namespace qzhub
