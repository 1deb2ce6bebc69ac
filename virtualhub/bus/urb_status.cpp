#include "virtualhub/bus/urb_status.h"

namespace virtualhub {

std::int32_t UrbStatusOf(const Result& result) {
  constexpr std::uint32_t kMostSystemCode = 133;  // the last error number of Linux
  switch (result.error) {
    case Error::None:
      return kUrbOk;
    case Error::Gone:
    case Error::CutOff:
      return kUrbProtocolError;
    case Error::SystemCode:
      return result.code >= 1 && result.code <= kMostSystemCode
                 ? -static_cast<std::int32_t>(result.code)
                 : kUrbProtocolError;
    default:
      return kUrbStall;
  }
}

}  // namespace virtualhub
