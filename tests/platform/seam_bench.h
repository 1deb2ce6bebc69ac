// The machine that a backend runs on in the seam test.
#pragma once

#include <functional>
#include <string>

namespace qzhid::platform::test {

/// A machine with a hub as it comes, the two devices below, and nothing else.
struct SeamBench {
  unsigned port = 0;   ///< of the first hub
  unsigned level = 0;  ///< nodes above the first hub's USB node, up to the root hub
  /// Whether a device that comes back to its port has the same numbers again.
  bool keepsNumbers = false;
  /// Take the first hub off the bus, or put it back; return when the system has noticed.
  std::function<void()> unplug, plug;
};

/// Each backend defines this once.
SeamBench MakeSeamBench();

inline const std::string kOtherDevices =
    R"({"name": "second", "port": "2", "image": {"vid": "0x1A2B", "pid": "0x3C4D"},
        "product_text": "WQ HID Größe", "output_report_length": 200, "input_report_length": 300},
       {"name": "other", "kind": "other", "port": "5", "vid": "0x1234", "pid": "0x5678",
        "output_report_length": 2, "input_report_length": 9})";

}  // namespace qzhid::platform::test
