// Time, the host's description of itself, and debug output.
#include "platform/system/library_file.h"
#include "platform/system/system_time.h"
#include "platform/virtual/error_codes.h"
#include "platform/virtual/machine.h"

namespace qzhid::platform {

using virtualhub::HostArchitecture;
using virtualhub::Result;
using virtualhub::Service;

namespace {

Architecture BuildArchitecture() {
#if defined(__aarch64__) || defined(_M_ARM64)
  return Architecture::Arm64;
#elif defined(__x86_64__) || defined(_M_X64)
  return Architecture::X64;
#elif defined(__i386__) || defined(_M_IX86)
  return Architecture::X86;
#else
  return Architecture::Unknown;
#endif
}

Architecture ToArchitecture(HostArchitecture architecture) {
  switch (architecture) {
    case HostArchitecture::X86:
      return Architecture::X86;
    case HostArchitecture::X64:
      return Architecture::X64;
    case HostArchitecture::Arm64:
      return Architecture::Arm64;
    case HostArchitecture::OfTheBuild:
      return BuildArchitecture();
    default:
      return Architecture::Unknown;
  }
}

// Whether a part of the host's description can be read, as far as faults go.
bool CanRead(virtualhub::Machine& machine, Service service) {
  return machine.Call(service, 0, 0, [](const virtualhub::Machine::View&) -> Result { return {}; })
      .ok();
}

}  // namespace

void SleepMs(std::uint32_t milliseconds) { HoldMachine()->SleepMs(milliseconds); }

std::uint64_t ClockMs() { return HoldMachine()->clock().NowUs() / 1000; }

LocalTime GetLocalTime() {
  const auto machine = HoldMachine();
  if (machine->clock().mode() == virtualhub::Clock::Mode::Virtual) {
    const virtualhub::CalendarTime now = machine->clock().VirtualCalendar();
    return {now.year, now.month, now.day, now.hour, now.minute, now.second};
  }
  return SystemLocalTime();
}

Status GetLibraryPath(std::string& path) {
  const auto machine = HoldMachine();
  const auto result = machine->Call(Service::GetLibraryPath, 0, 0,
                                    [](const virtualhub::Machine::View&) -> Result { return {}; });
  return result.ok() ? SystemLibraryPath(path) : ToStatus(result);
}

Architecture NativeArchitecture() {
  const auto machine = HoldMachine();
  if (!CanRead(*machine, Service::NativeArchitecture)) return Architecture::Unknown;
  return ToArchitecture(machine->host().architecture);
}

HostDescription DescribeHost() {
  const auto machine = HoldMachine();
  const virtualhub::HostConfig& host = machine->host();
  HostDescription description;
  description.major = host.major;
  description.minor = host.minor;
  description.build = host.build;
  description.architecture = NativeArchitecture();
  description.hasVersionStore =
      host.hasVersionStore && CanRead(*machine, Service::HostVersionStore);
  if (!description.hasVersionStore) return description;
  if (CanRead(*machine, Service::HostProductName)) description.productName = host.productName;
  if (CanRead(*machine, Service::HostUpdateRevision)) {
    description.updateRevision = host.updateRevision;
  }
  return description;
}

void DebugOutput(const std::wstring& text) { HoldMachine()->DebugText(ToNarrow(text)); }

}  // namespace qzhid::platform
