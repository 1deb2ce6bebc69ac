#pragma once

#include <optional>
#include <string>

#include "virtualhub/bus/usb_tree.h"
#include "virtualhub/hub/hub_config.h"

namespace virtualhub {

/// A HID node during one stay of its device on the bus: what an open handle keeps to. When the
/// device comes back its node may have the same number; it is another stay.
struct HidNode {
  DevInst number = 0;
  std::uint64_t stay = 0;
  bool operator==(const HidNode&) const = default;
};

/// A device on the bus, as a USB host finds it. Each time it comes back it has another `hid`, and
/// what it says of itself may have changed.
struct BusDevice {
  std::string name;  ///< in the scenario
  HidNode hid;       ///< which takes its reports
  PortPath port;
  UsbIds ids;
  std::optional<std::string> productText;  ///< string 52, UTF-8
  ReportConfig reports;
};

}  // namespace virtualhub
