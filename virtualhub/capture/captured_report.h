// The HID reports in the transfers of a capture.
#pragma once

#include <cstdint>
#include <optional>
#include <set>

#include "virtualhub/bus/usb_tree.h"
#include "virtualhub/capture/transfer_reader.h"

namespace virtualhub {

/// The report that a transfer carries or asks for.
struct CapturedReport {
  bool isOutput = false;  ///< otherwise an input report that is read with GET_REPORT
  std::uint8_t id = 0;
};

/// None for a transfer without one. What comes to the interrupt IN endpoint counts as none: the
/// hubs answer to GET_REPORT.
std::optional<CapturedReport> ReportOf(const UsbTransfer& transfer);

/// The report with its ID in front, which is not on the wire if it is 0.
Bytes WholeReport(const UsbTransfer& transfer, const CapturedReport& report);

/// Finds out which devices of a capture are hubs: those that show the hubs' vendor id in their
/// device descriptor, or get a request that enables vendor requests. An address counts from then
/// on, until a device of another vendor has it.
class HubSpotter {
 public:
  static constexpr std::size_t kMostHubs = 4096;  ///< further ones are not found

  /// Takes each transfer, in order. Whether it is one of a hub.
  bool Take(const UsbTransfer& transfer);

 private:
  std::set<UsbAddress> hubs_;
};

/// What a device descriptor that was read says. None for any other transfer.
std::optional<UsbIds> IdsReadBy(const UsbTransfer& transfer);

}  // namespace virtualhub
