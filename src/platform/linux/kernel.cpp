// Time, the host's description of itself, and debug output.
#include <fcntl.h>
#include <sys/utsname.h>

#include <chrono>
#include <thread>

#include "platform/linux/host_facts.h"
#include "platform/linux/sysfs.h"
#include "platform/linux/system_path.h"
#include "platform/system/library_file.h"
#include "platform/system/system_time.h"

namespace qzhid::platform {

namespace {

std::optional<std::string> ReadOsRelease() {
  auto text = ReadTextFile(AT_FDCWD, SystemPath("/etc/os-release").c_str());
  return text ? text : ReadTextFile(AT_FDCWD, SystemPath("/usr/lib/os-release").c_str());
}

utsname SystemNames() {
  utsname names{};
  uname(&names);  // fails only for a bad address
  return names;
}

}  // namespace

Status GetLibraryPath(std::string& path) { return SystemLibraryPath(path); }

void SleepMs(std::uint32_t milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

std::uint64_t ClockMs() { return SystemClockMs(); }

LocalTime GetLocalTime() { return SystemLocalTime(); }

Architecture NativeArchitecture() { return ParseMachine(SystemNames().machine); }

HostDescription DescribeHost() {
  const KernelRelease kernel = ParseKernelRelease(SystemNames().release);
  HostDescription description;
  description.major = kernel.major;
  description.minor = kernel.minor;
  description.build = kernel.build;
  description.updateRevision = kernel.updateRevision;
  description.architecture = NativeArchitecture();
  const auto osRelease = ReadOsRelease();
  description.hasVersionStore = osRelease.has_value();
  if (osRelease) description.productName = OsReleaseValue(*osRelease, "PRETTY_NAME");
  return description;
}

// Linux has no channel to an attached debugger, and what everybody can read, such as standard error
// or the system's log, belongs to the host.
void DebugOutput(const std::wstring&) {}

}  // namespace qzhid::platform
