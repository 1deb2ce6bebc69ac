// The machine that a backend runs on in the seam test.
#pragma once

#include <memory>
#include <string>

#include "platform/platform.h"

namespace qzhid::platform::test {

/// A machine with the two hubs below and one HID device of another family.
class ISeamBench {
 public:
  virtual ~ISeamBench() = default;

  /// Take the first hub off the bus, or put it back; return when the system has noticed.
  virtual void Unplug() = 0;
  virtual void Plug() = 0;

  std::uint32_t port = 0;   ///< of the first hub
  std::uint32_t level = 0;  ///< nodes above the first hub's USB node, up to the root hub
  /// Whether a device that comes back to its port has the same numbers again.
  bool keepsNumbers = false;
};

/// Each backend defines this once.
std::unique_ptr<ISeamBench> MakeSeamBench();

inline const std::string kSecondHub =
    R"({"name": "second", "port": "2", "image": {"vid": "0x1A2B", "pid": "0x3C4D"},
        "product_text": "WQ HID Größe", "output_report_length": 200, "input_report_length": 300})";
inline const std::string kOther = R"({"name": "other", "kind": "other", "port": "5",
    "vid": "0x1234", "pid": "0x5678", "output_report_length": 2, "input_report_length": 9})";

}  // namespace qzhid::platform::test
