#pragma once

#include <memory>
#include <optional>
#include <string>

#include "virtualhub/bus/usb_tree.h"
#include "virtualhub/hub/hub_config.h"

namespace virtualhub {

struct CapturedStay;

/// A HID node during one stay of its device on the bus, to which an open handle belongs. When the
/// device comes back its node may have the same number, but it is another stay.
struct HidNode {
  DevInst number = 0;
  std::uint64_t stay = 0;
  bool operator==(const HidNode&) const = default;
};

/// A device on the bus, as a USB host finds it. Each time it comes back it has another `hid`, and
/// the other members may have changed.
struct BusDevice {
  std::string name;  ///< in the scenario
  HidNode hid;       ///< takes its reports
  PortPath port;
  UsbIds ids;
  std::optional<std::string> productText;  ///< string 52, UTF-8
  ReportConfig reports;
  std::shared_ptr<const CapturedStay> captured = {};  ///< of a device that repeats a capture
};

}  // namespace virtualhub
