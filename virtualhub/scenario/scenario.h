// A scenario: the machine at its start. docs/virtual-hub.md describes the JSON form.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "virtualhub/bus/clock.h"
#include "virtualhub/bus/faults.h"
#include "virtualhub/bus/usb_tree.h"
#include "virtualhub/hub/hub_config.h"

namespace virtualhub {

struct CapturedHub;

/// One HID device: a hub, one out of a capture, or another device, which stalls every report.
struct DeviceConfig : DeviceNodes {
  std::string name;
  PortPath port;
  bool plugged = true;
  std::optional<std::string> productText;  ///< string 52
  std::optional<HubConfig> hub;
  std::shared_ptr<const CapturedHub> replay;
  UsbIds ids;            ///< of a device that is neither
  ReportConfig reports;  ///< of a device that is neither
};

enum class HostArchitecture { OfTheBuild, Unknown, X86, X64, Arm64 };

/// What the machine says about itself; a field without a value cannot be read.
struct HostConfig {
  bool hasVersionStore = true;
  std::optional<std::string> productName = "Virtual Host";
  std::uint32_t major = 10, minor = 0, build = 22631;
  std::optional<std::uint32_t> updateRevision = 1;
  HostArchitecture architecture = HostArchitecture::OfTheBuild;
};

struct Scenario {
  std::optional<Clock::Mode> time;  ///< none: virtual for tests, real for a host program
  std::optional<InstanceNumbers> instanceNumbers;  ///< none: as the system does
  HostConfig host;
  std::vector<NodeOverrides> rootHubs;
  std::map<PortPath, NodeOverrides> hubs;
  std::vector<DeviceConfig> devices;
  std::vector<std::string> enumerationOrder;  ///< device names; empty: as in `devices`
  std::vector<Fault> faults;
  bool record = false;
  std::filesystem::path stateFolder;  ///< empty: flash contents are not saved
  std::filesystem::path controlFile;  ///< empty: none
  std::filesystem::path captureFile;  ///< empty: none
  bool replacesCapture = false;       ///< otherwise a new file gets another name
};

/// Why a scenario is rejected: the place (JSON pointer, or line and column) and the reason.
class ScenarioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads a scenario from JSON text. Relative paths in it start at `folder`. Throws ScenarioError.
Scenario ReadScenario(const std::string& text, const std::filesystem::path& folder = {});

/// The environment variable that names the scenario file of a process.
inline constexpr const char* kScenarioVariable = "QZ_VIRTUAL_HUB";

/// Reads a scenario file; relative paths in it start at its folder. Throws ScenarioError.
Scenario ReadScenarioFile(const std::filesystem::path& file);

/// A hub at port 3.1 of version 1.02 that runs flash code, named "hub", with an EEPROM at I2C
/// address 0x50, and a keyboard at port 5, named "keyboard".
Scenario DefaultScenario();

}  // namespace virtualhub
