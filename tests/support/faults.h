// What goes wrong in a test, for Machine::AddFault. Each strikes at the n-th event and the ones
// after it, `count` in all; a count of 0 is for ever.
#pragma once

#include "virtualhub/bus/faults.h"

namespace qzhid::test {

using virtualhub::Fault;
using virtualhub::Service;

/// Calls of a platform service fail with that system code.
inline Fault CallFault(Service service, std::uint32_t nth = 1, std::uint32_t count = 1,
                       std::uint32_t code = 13) {
  return {.on = Fault::On::Call, .service = service, .nth = nth, .count = count, .code = code};
}

/// Reports (Fault::On::Exchange, Output or Input) fail with that system code.
inline Fault ReportFault(Fault::On on, std::uint32_t code, std::uint32_t count = 1) {
  return {.on = on, .count = count, .code = code};
}

/// Vendor requests of that key (type x 256 + request, such as 0x40C8) meet that action; Fail with
/// that code.
inline Fault RequestFault(std::uint16_t key, std::uint32_t nth = 1, std::uint32_t count = 1,
                          Fault::Action action = Fault::Action::Stall, std::uint32_t code = 0) {
  return {.on = Fault::On::Request,
          .requestType = static_cast<std::uint8_t>(key >> 8),
          .request = static_cast<std::uint8_t>(key),
          .nth = nth,
          .count = count,
          .action = action,
          .code = code};
}

}  // namespace qzhid::test
