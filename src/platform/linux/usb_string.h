#pragma once

#include <cstdint>
#include <string>

#include "platform/linux/node_facts.h"

namespace qzhid::platform {

/// Asks a USB device for its string of that index, in the first language that it has.
OpenStatus ReadUsbString(const NodeFacts& usbDevice, std::uint32_t index, std::wstring& text);

}  // namespace qzhid::platform
