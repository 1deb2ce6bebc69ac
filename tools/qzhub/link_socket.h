#pragma once

#include "qzhub/stop_event.h"
#include "qzhub/usbip_wire.h"
#include "virtualhub/bus/machine.h"

namespace qzhub {

/// Why a link ended.
enum class LinkEnd {
  Over,      ///< an end closed it, the device left the bus, or the end was requested
  NotUsbip,  ///< the other end sent what is not a message of USB/IP
};

/// Drives an imported device over a connected stream socket until the link ends. The socket is shut
/// down then.
LinkEnd RunLink(virtualhub::Machine& machine, const virtualhub::BusDevice& device,
                std::uint32_t devid, int socket, const StopEvent& stop);

}  // namespace qzhub
