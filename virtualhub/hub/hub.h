// The hub controller: its two programs, its flash and everything behind it, controlled by vendor
// requests.
#pragma once

#include <array>
#include <map>
#include <memory>
#include <optional>

#include "virtualhub/hub/flash_bank.h"
#include "virtualhub/hub/hub_config.h"
#include "virtualhub/hub/image.h"
#include "virtualhub/hub/result.h"
#include "virtualhub/hub/vendor_request.h"

namespace virtualhub {

/// What a request does beyond its answer.
struct Effects {
  std::uint32_t delayMs = 0;  ///< the request takes that long
  bool reset = false;         ///< the hub now leaves the bus and comes back
  bool save = false;          ///< the flash is to be saved
};

class Hub {
 public:
  explicit Hub(const HubConfig& config);

  /// Carries out one request. `answer` is the buffer for the answer of an IN request, filled with
  /// zeros. Unknown requests, wrong arguments and requests that the enable value or the running
  /// code do not allow stall without effect.
  Result Execute(const VendorRequest& request, MutableBytes answer, Effects& effects);

  /// The power went off and on: flash code runs if there is a complete image. An open write session
  /// is cut off.
  void PowerLoss();

  /// The hub was unplugged: it still runs the same code, the enable value is lost, an open write
  /// session is cut off.
  void Unplug();

  /// What the hub says about itself now: the image's identity in flash code, otherwise that of the
  /// ROM code.
  ImageIdentity Identity() const;

  Code code() const { return code_; }
  std::uint8_t enableValue() const { return enable_; }
  bool highClock() const { return highClock_; }
  std::uint16_t downloadSlave() const { return downloadSlave_; }  ///< address x 256 + mode
  std::array<std::uint8_t, 3> i2cSetting() const { return i2cSetting_; }
  const Bytes& rawBlock() const { return rawBlock_; }  ///< last raw block: header area, then data
  std::array<bool, kGpioLines>& gpio() { return gpio_; }
  const HubTiming& timing() const { return config_.timing; }

  /// Bank 0 or 1. activeBank() is the one that flash code runs from.
  FlashBank& bank(std::size_t number) { return banks_[number]; }
  std::size_t activeBank() const { return active_; }
  BridgeFlash& bridgeFlash() { return bridgeFlash_; }

  /// The target at that address, null when there is none of that kind.
  Eeprom* eeprom(std::uint8_t slave);
  BlockTarget* blockTarget(std::uint8_t slave);

  /// Flash contents with their history, to be saved and loaded. LoadFlash is a power-up as well; it
  /// returns false and changes nothing when the bytes do not describe this hub's flash.
  Bytes SaveFlash() const;
  bool LoadFlash(ByteView saved);

 private:
  struct Handler;
  static const Handler* FindHandler(std::uint16_t key);

  bool Enable(const VendorRequest& request, MutableBytes answer, Effects& effects);
  bool Status(const VendorRequest& request, MutableBytes answer, Effects& effects);
  bool WriteFlash(const VendorRequest& request, MutableBytes answer, Effects& effects);
  bool ReadFlash(const VendorRequest& request, MutableBytes answer, Effects& effects);
  bool EraseFlash(const VendorRequest& request, MutableBytes answer, Effects& effects);
  bool ResetToRom(const VendorRequest& request, MutableBytes answer, Effects& effects);
  bool ResetToFlash(const VendorRequest& request, MutableBytes answer, Effects& effects);
  bool ValidateImage(const VendorRequest& request, MutableBytes answer, Effects& effects);
  bool SetDownloadSlave(const VendorRequest& request, MutableBytes answer, Effects& effects);
  bool SetClock(const VendorRequest& request, MutableBytes answer, Effects& effects);
  bool ConfigureI2c(const VendorRequest& request, MutableBytes answer, Effects& effects);
  bool WriteI2c(const VendorRequest& request, MutableBytes answer, Effects& effects);
  bool ReadI2c(const VendorRequest& request, MutableBytes answer, Effects& effects);
  bool BlockOut(const VendorRequest& request, MutableBytes answer, Effects& effects);
  bool BlockIn(const VendorRequest& request, MutableBytes answer, Effects& effects);
  bool WriteBridge(const VendorRequest& request, MutableBytes answer, Effects& effects);
  bool EraseBridge(const VendorRequest& request, MutableBytes answer, Effects& effects);
  bool BridgeStatus(const VendorRequest& request, MutableBytes answer, Effects& effects);
  bool TakeRawBlock(const VendorRequest& request, MutableBytes answer, Effects& effects);
  bool ReadGpio(const VendorRequest& request, MutableBytes answer, Effects& effects);
  bool WriteGpio(const VendorRequest& request, MutableBytes answer, Effects& effects);
  bool SetHubGpio(const VendorRequest& request, MutableBytes answer, Effects& effects);

  void Boot(Code wanted);
  void CutSessions();
  FlashBank& TargetBank();
  bool MayChangeFlash() const;
  I2cTarget* AddressedTarget(const VendorRequest& request);

  HubConfig config_;
  std::vector<FlashBank> banks_;
  std::size_t active_ = 0;
  Code code_ = Code::Rom;
  std::uint8_t enable_ = 0;
  bool highClock_ = false;
  std::uint16_t downloadSlave_ = 0;
  std::array<std::uint8_t, 3> i2cSetting_{};
  Bytes rawBlock_;
  std::map<std::uint8_t, std::unique_ptr<I2cTarget>> i2cTargets_;
  BridgeFlash bridgeFlash_;
  std::array<bool, kGpioLines> gpio_;
};

}  // namespace virtualhub
