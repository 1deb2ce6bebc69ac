// The machine that a backend runs on in the seam test.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace qzhid::platform::test {

/// A hub of the family that runs flash code.
struct ExpectedHub {
  std::wstring hardwareId;   ///< the first one of both nodes, after "HID\\" or "USB\\"
  std::wstring productText;  ///< string 52
  HidCaps caps;
  std::uint32_t port = 0;   ///< on its hub
  std::uint32_t level = 0;  ///< nodes above the USB node, up to the root hub
};

/// A machine with two hubs, no two alike, and one HID device 1234:5678 of another family.
class ISeamBench {
 public:
  virtual ~ISeamBench() = default;

  virtual std::vector<ExpectedHub> Hubs() = 0;
  /// Whether a device that comes back to its port has the same numbers again.
  virtual bool KeepsNumbers() = 0;
  /// Take the first hub off the bus, or put it back; return when the system has noticed.
  virtual void Unplug() = 0;
  virtual void Plug() = 0;
};

/// Each backend defines this once.
std::unique_ptr<ISeamBench> MakeSeamBench();

inline const char* const kSecondHub =
    R"({"name": "second", "port": "2", "image": {"vid": "0x1A2B", "pid": "0x3C4D"},
        "product_text": "WQ HID Größe", "output_report_length": 200, "input_report_length": 300})";
inline const char* const kOther = R"({"name": "other", "kind": "other", "port": "5",
    "vid": "0x1234", "pid": "0x5678", "output_report_length": 2, "input_report_length": 9})";

inline std::vector<ExpectedHub> HubsAt(std::uint32_t port1, std::uint32_t level1,
                                       std::uint32_t port2) {
  return {{L"VID_2E7C&PID_0818&REV_0100", L"WQ HID Hub", {321, 257}, port1, level1},
          {L"VID_1A2B&PID_3C4D&REV_0100", L"WQ HID Gr\u00F6\u00DFe", {200, 300}, port2, 1}};
}

}  // namespace qzhid::platform::test
