#pragma once

#include <cstdint>

#include "virtualhub/hub/result.h"

namespace virtualhub {

/// Status of a transfer: a negative error number of Linux.
enum UrbStatus : std::int32_t {
  kUrbOk = 0,
  kUrbNoMemory = -12,
  kUrbNoDevice = -19,
  kUrbStall = -32,
  kUrbProtocolError = -71,
  kUrbUnlinked = -104,
  kUrbUnderWay = -115,
};

/// Of the transfer in which a report travelled.
std::int32_t UrbStatusOf(const Result& result);

}  // namespace virtualhub
