// A HID device as the current device.
#pragma once

#include <memory>

#include "transport/property.h"
#include "transport/transfers.h"

namespace qzhid {

class CHidProperty final : public IPropertyEx {
 public:
  /// Without transfers every request is refused.
  explicit CHidProperty(std::unique_ptr<ITransfers> transfers);
  ~CHidProperty() override;
  CHidProperty(const CHidProperty&) = delete;
  CHidProperty& operator=(const CHidProperty&) = delete;

  /// Closes what is open first.
  std::uint32_t Yv_OpenDeviceByDevInst(std::uint32_t devInst) override;
  std::uint32_t Yv_CloseDevice() override;
  std::uint32_t Init() override { return 1; }
  std::uint32_t UnInit() override { return 1; }
  std::uint32_t Yv_SendVDCmd(std::uint8_t bmRequestType, std::uint8_t bRequest,
                             std::uint16_t wValue, std::uint16_t wIndex, std::uint8_t* data,
                             std::uint32_t wLength, std::uint32_t timeoutMs) override;
  std::uint32_t CtlPipeNoDataOut(const SetupPacket& setup) override;
  std::uint32_t CtlPipeOut(const PacketHeader& header, std::uint8_t* data) override;
  std::uint32_t CtlPipeIn(const PacketHeader& header, std::uint8_t* buffer) override;
  std::uint32_t Reserved14() override;

  /// Opens the device, and closes it again when it is accepted.
  std::uint32_t Yv_IsWqHid(std::uint32_t devInst) override;
  std::uint32_t EnableChannel2() override;

 private:
  std::unique_ptr<ITransfers> m_pTransfers;
  bool m_bUseChannel2 = false;
};

}  // namespace qzhid
