#pragma once

#include "qzhub/stop_event.h"
#include "qzhub/usbip_wire.h"
#include "virtualhub/bus/machine.h"

namespace qzhub {

/// Drives an imported device over a connected stream socket until either end closes it, the device
/// leaves the bus, the other end breaks the protocol, or the end is requested. The socket is shut
/// down then. The text says what the other end did wrong; it is empty otherwise.
std::string RunLink(virtualhub::Machine& machine, const virtualhub::BusDevice& device,
                    std::uint32_t devid, int socket, const StopEvent& stop);

}  // namespace qzhub
