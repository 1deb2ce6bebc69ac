#include "qzhid/explain/error_names.h"

#include <algorithm>
#include <span>

namespace qzhid {

namespace {

using Class = ErrorClass;

constexpr std::uint32_t kWithoutCode = 0xFFFFFFFF;

struct ErrorEntry {
  std::uint32_t code;
  Class kind;
  const char* name;
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
    {1, Class::NoPermission, "EPERM", kDenied},
    {2, Class::Gone, "ENOENT", "there is no such device or entry"},
    {4, Class::Other, "EINTR", "a signal interrupted it"},
    {5, Class::Other, "EIO", "the transfer failed"},
    {6, Class::Gone, "ENXIO", kLeft},
    {9, Class::Closed, "EBADF", kNotOpen},
    {11, Class::Other, "EAGAIN", "it cannot be done now"},
    {12, Class::NoMemory, "ENOMEM", kMemory},
    {13, Class::NoPermission, "EACCES", kDenied},
    {16, Class::InUse, "EBUSY", kShared},
    {19, Class::Gone, "ENODEV", kLeft},
    {22, Class::Other, "EINVAL", "the kernel or the device does not accept it"},
    {23, Class::NoMemory, "ENFILE", "the system has too many open files"},
    {24, Class::NoMemory, "EMFILE", "the program has too many open files"},
    {25, Class::Other, "ENOTTY", "the kernel does not know the request; it must be 5.11 or newer"},
    {28, Class::Other, "ENOSPC", "there is no room for it"},
    {32, Class::Refused, "EPIPE", kStall},
    {61, Class::Other, "ENODATA", "there is no answer"},
    {71, Class::Gone, "EPROTO", kLeftNow},
    {75, Class::Other, "EOVERFLOW", "the device sent too much"},
    {84, Class::Gone, "EILSEQ", "the transfer failed, as when a device leaves"},
    {104, Class::Gone, "ECONNRESET", kLeftNow},
    {105, Class::Other, "ENOBUFS", "the text is longer than the buffer"},
    {108, Class::Gone, "ESHUTDOWN", kLeft},
    {110, Class::TimedOut, "ETIMEDOUT", kLate},
    {121, Class::Other, "EREMOTEIO", "the device sent too little"},
};

constexpr ErrorEntry kWindowsTable[] = {
    {1, Class::Refused, "ERROR_INVALID_FUNCTION", "the device does not accept it"},
    {2, Class::Gone, "ERROR_FILE_NOT_FOUND", "there is no such device"},
    {3, Class::Gone, "ERROR_PATH_NOT_FOUND", "there is no such device"},
    {5, Class::NoPermission, "ERROR_ACCESS_DENIED", kDenied},
    {6, Class::Closed, "ERROR_INVALID_HANDLE", kNotOpen},
    {8, Class::NoMemory, "ERROR_NOT_ENOUGH_MEMORY", kMemory},
    {13, Class::Other, "ERROR_INVALID_DATA", "the data is not valid"},
    {14, Class::NoMemory, "ERROR_OUTOFMEMORY", kMemory},
    {19, Class::Refused, "ERROR_WRITE_PROTECT", "it is protected against writing"},
    {21, Class::Other, "ERROR_NOT_READY", "the device is not ready"},
    {22, Class::Gone, "ERROR_BAD_COMMAND", "the device does not know it, or has left the bus"},
    {23, Class::Other, "ERROR_CRC", "the transfer failed"},
    {31, Class::Refused, "ERROR_GEN_FAILURE", kStall},
    {32, Class::InUse, "ERROR_SHARING_VIOLATION", kShared},
    {50, Class::Other, "ERROR_NOT_SUPPORTED", "the system does not support it"},
    {55, Class::Gone, "ERROR_DEV_NOT_EXIST", kLeft},
    {87, Class::Other, "ERROR_INVALID_PARAMETER", "the system does not accept its arguments"},
    {121, Class::TimedOut, "ERROR_SEM_TIMEOUT", kLate},
    {122, Class::Other, "ERROR_INSUFFICIENT_BUFFER", "the buffer is too small"},
    {170, Class::InUse, "ERROR_BUSY", "the device is in use"},
    {259, Class::Gone, "ERROR_NO_MORE_ITEMS", "there is no such entry any more"},
    {433, Class::Gone, "ERROR_NO_SUCH_DEVICE", kLeft},
    {995, Class::Gone, "ERROR_OPERATION_ABORTED", kLeftNow},
    {997, Class::Other, "ERROR_IO_PENDING", "it has not ended"},
    {1117, Class::Other, "ERROR_IO_DEVICE", "the transfer failed"},
    {1167, Class::Gone, "ERROR_DEVICE_NOT_CONNECTED", kLeft},
    {1168, Class::Gone, "ERROR_NOT_FOUND", "there is no such entry"},
    {1450, Class::NoMemory, "ERROR_NO_SYSTEM_RESOURCES", "the system has not enough resources"},
    {1460, Class::TimedOut, "ERROR_TIMEOUT", kLate},
    {1784, Class::Other, "ERROR_INVALID_USER_BUFFER", "the text is longer than the buffer"},
    {2404, Class::InUse, "ERROR_DEVICE_IN_USE", "the device is in use"},
};

constexpr ErrorEntry kNodeTable[] = {
    {0x02, Class::NoMemory, "CR_OUT_OF_MEMORY", kMemory},
    {0x03, Class::Other, "CR_INVALID_POINTER", "the system does not accept its arguments"},
    {0x05, Class::Gone, "CR_INVALID_DEVNODE", "there is no such device node"},
    {0x0D, Class::Gone, "CR_NO_SUCH_DEVNODE", "there is no such device node"},
    {0x13, Class::Other, "CR_FAILURE", "it failed"},
    {0x1A, Class::Other, "CR_BUFFER_SMALL", "the text is longer than the buffer"},
    {0x1D, Class::Other, "CR_REGISTRY_ERROR", "the registry cannot be read"},
    {0x1E, Class::Other, "CR_INVALID_DEVICE_ID", "the device id is not valid"},
    {0x25, Class::Other, "CR_NO_SUCH_VALUE", "the device does not have it"},
    {0x33, Class::NoPermission, "CR_ACCESS_DENIED", kDenied},
};

constexpr ErrorEntry kParserTable[] = {
    {0xC0110001, Class::Other, "HIDP_STATUS_INVALID_PREPARSED_DATA",
     "the report descriptor is not valid"},
    {0xC0110002, Class::Other, "HIDP_STATUS_INVALID_REPORT_TYPE", "there is no such report"},
    {0xC0110003, Class::Other, "HIDP_STATUS_INVALID_REPORT_LENGTH",
     "the report has another length"},
    {0xC0110004, Class::Other, "HIDP_STATUS_USAGE_NOT_FOUND", "there is no such usage"},
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
