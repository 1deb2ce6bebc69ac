// The jobs that a flow does on one device.
#pragma once

#include <cstdint>

namespace qzhid {

/// Booleans are true for success. Waits are in seconds.
class IMpFlow {
 public:
  IMpFlow() = default;
  IMpFlow(const IMpFlow&) = delete;
  IMpFlow& operator=(const IMpFlow&) = delete;
  virtual ~IMpFlow() = default;

  /// Writes the loaded image to the device and, unless switched off, starts it.
  virtual bool DevUpdate() = 0;
  /// The same with a reconnect option for the device; always starts the new firmware.
  virtual bool DevUpdateReconn(std::uint8_t option) = 0;
  /// Resets the device into the code in its flash.
  virtual bool ResetDeviceonly() = 0;
  /// DevUpdate for boards on which `switchOn` must switch the power on again after the reset.
  virtual bool DevUpdateSwitchOnBBafterReset(bool (*switchOn)()) = 0;
  /// Read the version that the device runs, high byte major.
  virtual bool DevReadVersion(std::uint16_t* version) = 0;
  virtual bool DevReadVersionEx(std::uint16_t* version, std::uint32_t wait) = 0;
  /// Erases the device's flash. True also when the device did not come back to be erased.
  virtual bool DevErase() = 0;
  /// Loads the image file into the device. After a failure the device holds no image.
  virtual bool InitFwFinder(const char* path) = 0;
  /// Reads the loaded image's version; arguments of IDev::GetBinVersion.
  virtual bool DevHidCmd(std::uint16_t* version, std::uint8_t mode) = 0;
  /// Reads the 20-byte status block.
  virtual bool DveGetICStatus(std::uint8_t* status) = 0;

  virtual bool WaitConnect(std::uint32_t wait) = 0;
  /// Always waits 10 seconds.
  virtual bool WaitUnconnect(std::uint32_t wait) = 0;

  /// Set up the GPIO steps and the I2C speed step of the jobs that have them; off at first.
  virtual void SetGpioPara(std::uint32_t enable, std::uint8_t num, std::uint8_t level) = 0;
  virtual void SetI2CSpeedPara(std::uint32_t enable, std::uint32_t speed,
                               std::uint8_t slaveAddr) = 0;
};

}  // namespace qzhid
