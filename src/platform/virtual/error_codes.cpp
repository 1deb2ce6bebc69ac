#include "platform/virtual/error_codes.h"

#include <cerrno>

namespace qzhid::platform {

namespace {

using virtualhub::Error;

// Windows: the error codes of the HID and file services, and the CR_... results of the
// configuration manager for nodes and their texts.
std::uint32_t CodeOf(Error error) {
#ifdef _WIN32
  switch (error) {
    case Error::Stall:
      return 31;  // ERROR_GEN_FAILURE
    case Error::Gone:
      return 1167;  // ERROR_DEVICE_NOT_CONNECTED
    case Error::CutOff:
      return 995;  // ERROR_OPERATION_ABORTED
    case Error::BadReport:
      return 87;  // ERROR_INVALID_PARAMETER
    case Error::NoSuchPath:
      return 2;  // ERROR_FILE_NOT_FOUND
    case Error::HeldByOther:
      return 32;  // ERROR_SHARING_VIOLATION
    case Error::NoMoreNodes:
      return 259;  // ERROR_NO_MORE_ITEMS
    case Error::StringTooLong:
      return 1784;  // ERROR_INVALID_USER_BUFFER
    case Error::NoSuchNode:
    case Error::NoParent:
      return 0x0D;  // CR_NO_SUCH_DEVNODE
    case Error::NoSuchProperty:
      return 0x25;  // CR_NO_SUCH_VALUE
    case Error::TextTooLong:
      return 0x1A;  // CR_BUFFER_SMALL
    default:
      return 0;
  }
#else
  switch (error) {
    case Error::Stall:
      return EPIPE;
    case Error::Gone:
    case Error::NoSuchNode:
      return ENODEV;
    case Error::CutOff:
      return EPROTO;
    case Error::BadReport:
      return EINVAL;
    case Error::HeldByOther:
      return EBUSY;
    case Error::NoSuchPath:
    case Error::NoSuchProperty:
    case Error::NoParent:
    case Error::NoMoreNodes:
      return ENOENT;
    case Error::TextTooLong:
    case Error::StringTooLong:
      return ENOBUFS;
    default:
      return 0;
  }
#endif
}

}  // namespace

Status ToStatus(const virtualhub::Result& result) {
  if (result.ok()) return {};
  return Status::Failure(result.error == Error::SystemCode ? result.code : CodeOf(result.error));
}

Status InvalidHandle() {
#ifdef _WIN32
  return Status::Failure(6);  // ERROR_INVALID_HANDLE
#else
  return Status::Failure(EBADF);
#endif
}

}  // namespace qzhid::platform
