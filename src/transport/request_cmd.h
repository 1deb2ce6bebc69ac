// The hub controller's vendor requests by name.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/process_object.h"
#include "transport/property.h"

namespace qzhid {

/// The status block that a status request returns, in bytes.
inline constexpr std::uint32_t kStatusBlockSize = 20;

/// Values of the vendor-command enable: what the hub accepts afterwards.
inline constexpr std::uint8_t kEnableCommands = 1;
inline constexpr std::uint8_t kEnableFlashWrite = 3;

/// Requests to the hub's I2C master that travel as ready headers.
inline constexpr std::uint8_t kI2CWriteRequest = 0xC6;
inline constexpr std::uint8_t kI2CReadRequest = 0xD6;

/// Process-wide. Every request goes to the current property object; without one it is refused and
/// logged. All operations return 0 for success or an error as in result.h, unless said otherwise.
/// The object holds no lock: setting the property and requests are for one thread at a time.
class CRequestCMD {
 public:
  /// The first call logs a description of the host.
  static CRequestCMD& Instance();

  CRequestCMD(const CRequestCMD&) = delete;
  CRequestCMD& operator=(const CRequestCMD&) = delete;

  /// Installs the current device, not owned, or none.
  void SetProperty(IPropertyEx* property) { m_pProperty = property; }
  IPropertyEx* Property() const { return m_pProperty; }

  std::uint32_t QZ_OpenDevice(std::uint32_t devInst);
  std::uint32_t Yv_CloseDevice();
  /// Whether the device is one of the family: 0 or another value.
  std::uint32_t YvHid_IsWqHid(std::uint32_t devInst);

  std::uint32_t Yv_VdCmdEnable(std::uint8_t value);
  /// `block` holds kStatusBlockSize bytes.
  std::uint32_t Yv_Status(std::uint8_t* block);
  /// Writes `length` bytes from flash address `addr` on, in requests of at most 4096 bytes; stops
  /// at the first that fails.
  std::uint32_t Yv_WriteFlash2(std::uint32_t addr, const std::uint8_t* data, std::uint32_t length);
  /// Reads `length` bytes from flash address `addr` on, in one request.
  std::uint32_t Yv_ReadFlash2(std::uint32_t addr, std::uint8_t* buffer, std::uint32_t length);
  std::uint32_t Yv_EraseFlash2(std::uint32_t addr);
  /// Resets the hub into its ROM code.
  std::uint32_t Yv_FWReset(std::uint16_t uOption);
  /// Resets the hub into the code in its flash.
  std::uint32_t Yv_ResetCode();
  std::uint32_t Yv_ISPValidation();
  /// Returns 0 for success and 1 for any failure.
  std::uint32_t Yv_SetDLSlaveAddr(std::uint8_t mode, std::uint8_t bySlaveAddr);

  /// Sends a request as given. The buffer of an IN request travels to the hub as well.
  std::uint32_t Yv_SendVDCmd(std::uint8_t bmRequestType, std::uint8_t bRequest,
                             std::uint16_t wValue, std::uint16_t wIndex, std::uint8_t* data,
                             std::uint32_t wLength, std::uint32_t timeoutMs);
  std::uint32_t Yv_CtlPipeNoDataOut(const SetupPacket& setup);
  std::uint32_t Yv_CtlPipeOut(const PacketHeader& header, std::uint8_t* data);
  std::uint32_t Yv_CtlPipeIn(const PacketHeader& header, std::uint8_t* buffer);

 private:
  struct RequestCode;
  struct Stage;

  friend class platform::CProcessObject<CRequestCMD>;

  CRequestCMD() = default;

  bool HasProperty(const char* tag) const;
  std::uint32_t Send(const char* tag, const RequestCode& code, std::uint16_t wValue,
                     std::uint16_t wIndex, const Stage& stage);

  IPropertyEx* m_pProperty = nullptr;
  std::atomic_flag m_bHostLogged;
};

}  // namespace qzhid
