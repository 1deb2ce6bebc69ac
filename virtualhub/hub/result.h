// The result of anything that a host asks of the machine.
#pragma once

#include <cstdint>

namespace virtualhub {

/// What went wrong, without a system's number for it.
enum class Error {
  None,
  Stall,           ///< the device stalled the request
  Gone,            ///< the device instance is no longer on the bus
  CutOff,          ///< the device left the bus during the exchange
  BadReport,       ///< report ID or length differ from what the device declares
  NoSuchNode,      ///< no present device node has that number
  NoSuchPath,      ///< the interface path names no present device
  HeldByOther,     ///< another program has opened the device exclusively
  NoSuchProperty,  ///< the node does not have that property
  NoParent,        ///< the node is the top of the tree
  NoMoreNodes,     ///< the index is after the last node
  TextTooLong,     ///< a device id or property does not fit the buffer
  StringTooLong,   ///< a string descriptor does not fit the buffer
  SystemCode,      ///< fails with the code of a fault
};

struct Result {
  Error error = Error::None;
  std::uint32_t code = 0;  ///< only for Error::SystemCode

  bool ok() const { return error == Error::None; }
  bool operator==(const Result&) const = default;
};

}  // namespace virtualhub
