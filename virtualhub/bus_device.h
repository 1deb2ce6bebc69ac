#pragma once

#include <optional>
#include <string>

#include "virtualhub/hub_config.h"
#include "virtualhub/usb_tree.h"

namespace virtualhub {

/// A device on the bus, as a USB host finds it. Each time it comes back it has another `hid`, and
/// what it says of itself may have changed.
struct BusDevice {
  std::string name;  ///< in the scenario
  DevInst hid = 0;   ///< its HID node, which takes its reports
  PortPath port;
  UsbIds ids;
  std::optional<std::string> productText;  ///< string 52, UTF-8
  ReportConfig reports;
};

}  // namespace virtualhub
