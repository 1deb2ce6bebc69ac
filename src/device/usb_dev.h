// A hub reached through vendor requests.
#pragma once

#include <array>

#include "device/kmo_hub_pd_dev.h"
#include "device/match.h"
#include "transport/request_cmd.h"

namespace qzhid {

/// The hub's status block. Bytes 10 and 11: firmware version, high byte first. Byte 13 bit 1: the
/// hub validates its flash itself. Byte 15 bit 1: flash code runs; bit 7: the flash is dual bank.
using StatusBlock = std::array<std::uint8_t, kStatusBlockSize>;

class CUSBDev : public CKmoHubPDDev {
 public:
  explicit CUSBDev(const Matchers& matchers) : m_Matchers(matchers) {}

  void AddVidPid(std::uint32_t first, std::uint32_t second) override;
  void SetTopology(const std::wstring& topology) override;
  void SetPosition(std::uint32_t pos1, std::uint32_t pos2) override;
  /// Makes the device match by its pairs and keeps the ids.
  virtual void SetDevVidPid(std::uint32_t vid, std::uint32_t pid);
  bool IsMatch(std::uint32_t devInst) override;
  bool IsDevInst(std::uint32_t devInst) override { return devInst == m_DevInst; }

  bool Arrive(std::uint32_t devInst) override;
  bool Remove() override;

  bool IsDualBank() override;
  std::int32_t IsRomCode() override;
  bool CanReset() override { return true; }
  bool Reset2RomEx() override;
  bool Reset2FlashEx() override;
  bool WriteFlashEx(const FwBuffer& image) override;
  bool ReadFlash(FwBuffer& buffer) override;
  bool CheckFlashWithISP() override;
  bool ReadVersion(std::uint16_t* version) override;
  bool GetICStatus(std::uint8_t* status) override;
  bool EraseFlash() override;
  bool VdCmdEnable(std::uint8_t value) override;
  bool SetDLSlaveAddr(std::uint8_t mode, std::uint8_t slaveAddr) override;

  std::int32_t I2CConfigImpl(std::uint8_t first, std::uint8_t second, std::uint8_t third) override;
  std::int32_t I2CWriteImpl(std::uint32_t addr, std::uint8_t* data, std::uint16_t len) override;
  std::int32_t I2CReadImpl(std::uint32_t addr, std::uint8_t* buf, std::uint16_t len) override;
  std::int32_t BlockOutTrans(const std::uint8_t* slave, std::uint8_t cmd, std::uint32_t addr,
                             const std::uint8_t* data, std::uint16_t len,
                             std::uint32_t timeout) override;
  std::int32_t BlockInTrans(const std::uint8_t* slave, std::uint8_t cmd, std::uint32_t addr,
                            std::uint8_t* buf, std::uint16_t len, std::uint32_t timeout) override;

 protected:
  /// Writes the image from the flash base on, `chunkSize` bytes a request and the rest in one more,
  /// with progress for every full chunk. Stops at the first full chunk that fails. Returns whether
  /// the last request succeeded; `resultIfEmpty` when there was none.
  bool WriteChunks(const FwBuffer& image, std::uint32_t chunkSize, bool resultIfEmpty);
  /// Reads in the same way, as many bytes as the firmware buffer holds.
  bool ReadChunks(FwBuffer& buffer, std::uint32_t chunkSize);

  std::uint32_t m_nFlashBase = 0;

 private:
  std::uint32_t FlashAddress(std::size_t offset) const {
    return m_nFlashBase + static_cast<std::uint32_t>(offset);
  }
  /// From now on a node must pass that test, too.
  void Require(const IMatch& match);

  const Matchers m_Matchers;
};

}  // namespace qzhid
