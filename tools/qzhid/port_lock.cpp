#include "qzhid/port_lock.h"

#include <cstdlib>
#include <filesystem>

#include "qzhid/host.h"
#include "qzhid/sha256.h"

namespace qzhid {

std::string LockName(Host& host, const std::string& location) {
  std::string whole = location;
  if (host.IsVirtual()) {
    const char* const scenario = std::getenv("QZ_VIRTUAL_HUB");
    // Without a scenario, each process has hubs of its own.
    whole =
        (scenario != nullptr ? std::filesystem::absolute(scenario) : host.Temporary()).string() +
        '\n' + location;
  }
  // The system limits the length and the letters of names.
  return "qzhid-" + Sha256({whole.begin(), whole.end()});
}

Failure IsBeingWritten(const std::string& hub) {
  return {Exit::Refused, "another process is writing the hub", hub,
          "wait until that has ended and repeat the command"};
}

}  // namespace qzhid
