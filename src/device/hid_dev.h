// A hub reached through its HID interface: what CUSBDev does, in transfers that fit HID reports.
#pragma once

#include "device/usb_dev.h"

namespace qzhid {

/// The settings of the hub's I2C master that travel in every I2C transfer.
using I2CConfig = std::array<std::uint8_t, 3>;

/// The 11-byte header of an I2C transfer: request, memory address least significant byte first,
/// length, and the settings.
PacketHeader MakeI2CHeader(std::uint8_t bRequest, std::uint32_t addr, std::uint8_t len,
                           const I2CConfig& config);

/// Logs a transfer that failed, with its code by `format` and its header. Returns the code.
std::uint32_t ReportTransfer(const char* tag, const char* format, std::uint32_t result,
                             const PacketHeader& header);

/// What ReportTransfer writes for I2C transfers.
inline constexpr const char* kWriteFailure = "Write Data Fail,ErrorCode:0x%08x\n";
inline constexpr const char* kReadFailure = "Read Data Fail,ErrorCode:0x%08x\n";

class CHidDev final : public CUSBDev {
 public:
  using CUSBDev::CUSBDev;

  /// The last I2CConfigImpl's; any thread may call both.
  I2CConfig GetI2CConfig() const;

  bool GetBinVersion(std::uint16_t* version, std::uint8_t mode) override;
  bool WriteFlashEx(const FwBuffer& image) override;
  bool ReadFlash(FwBuffer& buffer) override;

  std::int32_t I2CConfigImpl(std::uint8_t first, std::uint8_t second, std::uint8_t third) override;
  std::int32_t I2CWriteImpl(std::uint32_t addr, std::uint8_t* data, std::uint16_t len) override;
  std::int32_t I2CReadImpl(std::uint32_t addr, std::uint8_t* buf, std::uint16_t len) override;
  std::int32_t BlockOutTrans(const std::uint8_t* slave, std::uint8_t cmd, std::uint32_t addr,
                             const std::uint8_t* data, std::uint16_t len,
                             std::uint32_t timeout) override;
  std::int32_t BlockInTrans(const std::uint8_t* slave, std::uint8_t cmd, std::uint32_t addr,
                            std::uint8_t* buf, std::uint16_t len, std::uint32_t timeout) override;

 private:
  mutable std::mutex m_I2CLock;
  I2CConfig m_I2CCfg{};
};

}  // namespace qzhid
