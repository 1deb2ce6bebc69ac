#include "qzhid/explain/error_names.h"

#include <algorithm>
#include <span>

namespace qzhid {

namespace {

using Class = ErrorClass;

constexpr std::uint32_t kWithoutCode = 0xFFFFFFFF;

struct ErrorEntry {
  std::uint32_t code;
  const char* name;
  Class kind;
  const char* meaning;
};

constexpr const char* kStall = "the hub refused it (stall)";
constexpr const char* kLeft = "the hub has left the bus";
constexpr const char* kLeftNow = "the hub left the bus in the middle of it";
constexpr const char* kDenied = "there is no permission";
constexpr const char* kShared = "another program has the device open";
constexpr const char* kNotOpen = "the device is not open";
constexpr const char* kMemory = "there is not enough memory";
constexpr const char* kLate = "there was no answer in time";

constexpr ErrorEntry kErrnoTable[] = {
    {1, "EPERM", Class::NoPermission, kDenied},
    {2, "ENOENT", Class::Gone, "there is no such device or entry"},
    {4, "EINTR", Class::Other, "a signal interrupted it"},
    {5, "EIO", Class::Other, "the transfer failed"},
    {6, "ENXIO", Class::Gone, kLeft},
    {9, "EBADF", Class::Closed, kNotOpen},
    {11, "EAGAIN", Class::Other, "it cannot be done now"},
    {12, "ENOMEM", Class::NoMemory, kMemory},
    {13, "EACCES", Class::NoPermission, kDenied},
    {16, "EBUSY", Class::InUse, kShared},
    {19, "ENODEV", Class::Gone, kLeft},
    {22, "EINVAL", Class::Other, "the kernel or the device does not accept it"},
    {23, "ENFILE", Class::NoMemory, "the system has too many open files"},
    {24, "EMFILE", Class::NoMemory, "the program has too many open files"},
    {25, "ENOTTY", Class::Other, "the kernel does not know the request; it must be 5.11 or newer"},
    {28, "ENOSPC", Class::Other, "there is no room for it"},
    {32, "EPIPE", Class::Refused, kStall},
    {61, "ENODATA", Class::Other, "there is no answer"},
    {71, "EPROTO", Class::Gone, kLeftNow},
    {75, "EOVERFLOW", Class::Other, "the device sent too much"},
    {84, "EILSEQ", Class::Gone, "the transfer failed, as when a device leaves"},
    {104, "ECONNRESET", Class::Gone, kLeftNow},
    {105, "ENOBUFS", Class::Other, "the text is longer than the buffer"},
    {108, "ESHUTDOWN", Class::Gone, kLeft},
    {110, "ETIMEDOUT", Class::TimedOut, kLate},
    {121, "EREMOTEIO", Class::Other, "the device sent too little"},
};

constexpr ErrorEntry kWindowsTable[] = {
    {1, "ERROR_INVALID_FUNCTION", Class::Refused, "the device does not accept it"},
    {2, "ERROR_FILE_NOT_FOUND", Class::Gone, "there is no such device"},
    {3, "ERROR_PATH_NOT_FOUND", Class::Gone, "there is no such device"},
    {5, "ERROR_ACCESS_DENIED", Class::NoPermission, kDenied},
    {6, "ERROR_INVALID_HANDLE", Class::Closed, kNotOpen},
    {8, "ERROR_NOT_ENOUGH_MEMORY", Class::NoMemory, kMemory},
    {13, "ERROR_INVALID_DATA", Class::Other, "the data is not valid"},
    {14, "ERROR_OUTOFMEMORY", Class::NoMemory, kMemory},
    {19, "ERROR_WRITE_PROTECT", Class::Refused, "it is protected against writing"},
    {21, "ERROR_NOT_READY", Class::Other, "the device is not ready"},
    {22, "ERROR_BAD_COMMAND", Class::Gone, "the device does not know it, or has left the bus"},
    {23, "ERROR_CRC", Class::Other, "the transfer failed"},
    {31, "ERROR_GEN_FAILURE", Class::Refused, kStall},
    {32, "ERROR_SHARING_VIOLATION", Class::InUse, kShared},
    {50, "ERROR_NOT_SUPPORTED", Class::Other, "the system does not support it"},
    {55, "ERROR_DEV_NOT_EXIST", Class::Gone, kLeft},
    {87, "ERROR_INVALID_PARAMETER", Class::Other, "the system does not accept its arguments"},
    {121, "ERROR_SEM_TIMEOUT", Class::TimedOut, kLate},
    {122, "ERROR_INSUFFICIENT_BUFFER", Class::Other, "the buffer is too small"},
    {170, "ERROR_BUSY", Class::InUse, "the device is in use"},
    {259, "ERROR_NO_MORE_ITEMS", Class::Gone, "there is no such entry any more"},
    {433, "ERROR_NO_SUCH_DEVICE", Class::Gone, kLeft},
    {995, "ERROR_OPERATION_ABORTED", Class::Gone, kLeftNow},
    {997, "ERROR_IO_PENDING", Class::Other, "it has not ended"},
    {1117, "ERROR_IO_DEVICE", Class::Other, "the transfer failed"},
    {1167, "ERROR_DEVICE_NOT_CONNECTED", Class::Gone, kLeft},
    {1168, "ERROR_NOT_FOUND", Class::Gone, "there is no such entry"},
    {1450, "ERROR_NO_SYSTEM_RESOURCES", Class::NoMemory, "the system has not enough resources"},
    {1460, "ERROR_TIMEOUT", Class::TimedOut, kLate},
    {1784, "ERROR_INVALID_USER_BUFFER", Class::Other, "the text is longer than the buffer"},
    {2404, "ERROR_DEVICE_IN_USE", Class::InUse, "the device is in use"},
};

constexpr ErrorEntry kNodeTable[] = {
    {0x02, "CR_OUT_OF_MEMORY", Class::NoMemory, kMemory},
    {0x03, "CR_INVALID_POINTER", Class::Other, "the system does not accept its arguments"},
    {0x05, "CR_INVALID_DEVNODE", Class::Gone, "there is no such device node"},
    {0x0D, "CR_NO_SUCH_DEVNODE", Class::Gone, "there is no such device node"},
    {0x13, "CR_FAILURE", Class::Other, "it failed"},
    {0x1A, "CR_BUFFER_SMALL", Class::Other, "the text is longer than the buffer"},
    {0x1D, "CR_REGISTRY_ERROR", Class::Other, "the registry cannot be read"},
    {0x1E, "CR_INVALID_DEVICE_ID", Class::Other, "the device id is not valid"},
    {0x25, "CR_NO_SUCH_VALUE", Class::Other, "the device does not have it"},
    {0x33, "CR_ACCESS_DENIED", Class::NoPermission, kDenied},
};

constexpr ErrorEntry kParserTable[] = {
    {0xC0110001, "HIDP_STATUS_INVALID_PREPARSED_DATA", Class::Other,
     "the report descriptor is not valid"},
    {0xC0110002, "HIDP_STATUS_INVALID_REPORT_TYPE", Class::Other, "there is no such report"},
    {0xC0110003, "HIDP_STATUS_INVALID_REPORT_LENGTH", Class::Other,
     "the report has another length"},
    {0xC0110004, "HIDP_STATUS_USAGE_NOT_FOUND", Class::Other, "there is no such usage"},
};

std::span<const ErrorEntry> TableOf(System system, CodeKind kind) {
  if (system == System::Linux) return kErrnoTable;
  if (system == System::Unknown) return {};
  if (kind == CodeKind::Node) return kNodeTable;
  return kind == CodeKind::Parser ? std::span<const ErrorEntry>(kParserTable) : kWindowsTable;
}

const ErrorEntry* FindError(System system, CodeKind kind, std::uint32_t code) {
  const auto table = TableOf(system, kind);
  const auto found = std::find_if(table.begin(), table.end(),
                                  [code](const ErrorEntry& entry) { return entry.code == code; });
  return found != table.end() ? &*found : nullptr;
}

std::string CodeNumber(CodeKind kind, std::uint32_t code) {
  // As the headers of Windows write them.
  if (kind != CodeKind::Parser) return std::to_string(code);
  return std::to_string(static_cast<std::int32_t>(code));
}

std::string EntryText(System system, CodeKind kind, std::uint32_t code) {
  const ErrorEntry* const entry = FindError(system, kind, code);
  if (entry == nullptr) return "code " + CodeNumber(kind, code);
  return entry->name + (" (" + CodeNumber(kind, code) + "): ") + entry->meaning;
}

}  // namespace

std::string ErrorName(System system, CodeKind kind, std::uint32_t code) {
  const ErrorEntry* const entry = FindError(system, kind, code);
  return entry != nullptr ? entry->name : "";
}

std::string ErrorText(System system, CodeKind kind, std::uint32_t code) {
  if (code == kWithoutCode) return "-1: the system gave no reason, or the library sent nothing";
  if (system != System::Unknown) return EntryText(system, kind, code);
  std::string onLinux = EntryText(System::Linux, kind, code);
  const std::string onWindows = EntryText(System::Windows, kind, code);
  if (onLinux == onWindows) return onLinux;
  return "on Linux " + onLinux + "; on Windows " + onWindows;
}

ErrorClass ClassOf(System system, CodeKind kind, std::uint32_t code) {
  if (system != System::Unknown) {
    const ErrorEntry* const entry = FindError(system, kind, code);
    return entry != nullptr ? entry->kind : Class::Other;
  }
  const ErrorClass onLinux = ClassOf(System::Linux, kind, code);
  return onLinux == ClassOf(System::Windows, kind, code) ? onLinux : Class::Other;
}

}  // namespace qzhid
