// What the seam test needs to know of the machine that a backend runs on.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace qzhid::platform::test {

/// One HID device of the machine. All hardware ids are written as the backend writes them.
struct ExpectedDevice {
  std::wstring hidHardwareId;  ///< the first one of the HID node
  std::wstring usbHardwareId;  ///< the first one of its parent
  std::wstring productText;    ///< string 52
  HidCaps caps;
  std::uint32_t port = 0;   ///< on its hub
  std::uint32_t level = 0;  ///< ancestors of the USB node up to the root hub, that one included
  std::uint16_t vid = 0;    ///< of the hub, as its status block says
};

/// A machine with two hubs of the family, no two alike, that run flash code and answer requests,
/// and one HID device of another family.
class ISeamBench {
 public:
  virtual ~ISeamBench() = default;

  virtual std::vector<ExpectedDevice> Hubs() = 0;
  virtual std::wstring OtherHardwareId() = 0;
  virtual Architecture NativeArchitecture() = 0;
  /// Whether a device that comes back to its port has the same numbers again.
  virtual bool KeepsNumbers() = 0;

  /// Take a hub of Hubs() off the bus and put it back at the same port; return when the system has
  /// noticed.
  virtual void Unplug(std::size_t hub) = 0;
  virtual void Plug(std::size_t hub) = 0;
};

/// Each backend defines this once.
std::unique_ptr<ISeamBench> MakeSeamBench();

}  // namespace qzhid::platform::test
