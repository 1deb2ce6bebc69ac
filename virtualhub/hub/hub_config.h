// All settings of one hub.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "virtualhub/base/bytes.h"
#include "virtualhub/hub/block_target.h"
#include "virtualhub/hub/bridge_flash.h"
#include "virtualhub/hub/eeprom.h"
#include "virtualhub/hub/nor_memory.h"

namespace virtualhub {

/// Which of its two programs a hub runs.
enum class Code { Rom, Flash };

/// What a flash bank holds at the start.
struct BankConfig {
  SharedBytes image;                    ///< null: an erased bank
  std::optional<std::size_t> cutAfter;  ///< writing it was cut off after that many bytes
};

/// What the ROM code says about itself.
struct RomIdentity {
  std::uint16_t vid = 0x2E7C, pid = 0x0810, version = 0x0001;
};

struct HubTiming {
  std::uint32_t latencyUs = 250;  ///< each report, microseconds
  std::uint32_t eraseMs = 300;    ///< the erase request
  std::uint32_t leaveMs = 50;     ///< from an accepted reset until off the bus
  std::uint32_t returnMs = 700;   ///< from off the bus until back
  std::uint32_t readyMs = 100;    ///< from back on the bus until it answers requests
};

/// An interrupt OUT endpoint, and where the firmware then takes output reports: by SET_REPORT
/// (Ignored), at the endpoint (Only), or at both. Elsewhere it stalls them.
enum class OutEndpoint { None, Ignored, Only, Both };

/// Report channels and the declared report lengths in bytes, the report ID included.
struct ReportConfig {
  bool channel1 = true;
  bool channel2 = false;
  std::uint16_t outputLength = 321;
  std::uint16_t inputLength = 257;
  OutEndpoint outEndpoint = OutEndpoint::None;
};

inline constexpr std::size_t kGpioLines = 24;

struct HubConfig {
  std::size_t bankSize = 0x20000;  ///< bytes
  bool dualBank = false;
  BankConfig image;            ///< the bank written last
  BankConfig secondImage;      ///< the other bank of a dual-bank hub
  Code running = Code::Flash;  ///< at the start; ROM code without a complete image
  RomIdentity rom;
  bool ispSupported = false;
  HubTiming timing;
  ReportConfig reports;
  std::map<std::uint8_t, std::variant<EepromConfig, BlockTargetConfig>> i2cTargets;
  BridgeFlashConfig bridgeFlash;
  std::array<bool, kGpioLines> gpioLevels{};
};

}  // namespace virtualhub
