// Interrupt OUT endpoints of HID interfaces, and the kernel's switch for them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/platform.h"

namespace qzhid::platform {

/// Whether the USB interface in that folder of sysfs has an interrupt OUT endpoint. `shortage` is
/// that of CSysfsFolder.
bool HasInterruptOut(const std::string& interfaceFolder, Status& shortage);

/// Whether a list of quirks such as "0x2E7C:0x0818:0x40000,(null)", a parameter of the module
/// usbhid, keeps output reports for that device away from its endpoint.
bool KeepsOffEndpoint(std::string_view quirks, std::uint32_t vid, std::uint32_t pid);

/// The remark on a device with such an endpoint; empty when the quirk is set for it.
std::string OutEndpointRemark(std::uint32_t vid, std::uint32_t pid);

}  // namespace qzhid::platform
