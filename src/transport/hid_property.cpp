#include "transport/hid_property.h"

#include <utility>

#include "log/msg.h"

namespace qzhid {

CHidProperty::CHidProperty(std::unique_ptr<ITransfers> transfers)
    : m_pTransfers(std::move(transfers)) {}

CHidProperty::~CHidProperty() {
  if (m_pTransfers) m_pTransfers->Yv_CloseDevice();
}

std::uint32_t CHidProperty::Yv_OpenDeviceByDevInst(std::uint32_t devInst) {
  if (!m_pTransfers) return kRefused;
  m_pTransfers->Yv_CloseDevice();
  const std::uint32_t result = m_pTransfers->Yv_OpenDeviceByDevInst(devInst);
  if (result != 0) {
    CMsg::Instance().Log(3, "CHidProperty::Yv_OpenDeviceByDevInst", "Open Fail,ErrorCode:%d\n",
                         static_cast<int>(result));
  }
  return result;
}

std::uint32_t CHidProperty::Yv_CloseDevice() {
  return m_pTransfers ? m_pTransfers->Yv_CloseDevice() : kRefused;
}

std::uint32_t CHidProperty::Yv_SendVDCmd(std::uint8_t bmRequestType, std::uint8_t bRequest,
                                         std::uint16_t wValue, std::uint16_t wIndex,
                                         std::uint8_t* data, std::uint32_t wLength,
                                         std::uint32_t timeoutMs) {
  if (!m_pTransfers) return kRefused;
  const auto send = m_bUseChannel2 ? &ITransfers::Yv_SendVDCmd2 : &ITransfers::Yv_SendVDCmd;
  return (*m_pTransfers.*send)(bmRequestType, bRequest, wValue, wIndex, data, wLength, timeoutMs);
}

std::uint32_t CHidProperty::CtlPipeNoDataOut(const SetupPacket& setup) {
  return m_pTransfers ? m_pTransfers->SendNoDataOut(setup) : kRefused;
}

std::uint32_t CHidProperty::CtlPipeOut(const PacketHeader& header, std::uint8_t* data) {
  if (!m_pTransfers) return kRefused;
  return m_bUseChannel2 ? m_pTransfers->SendPacketOut2(header, data)
                        : m_pTransfers->SendPacketOut(header, data);
}

std::uint32_t CHidProperty::CtlPipeIn(const PacketHeader& header, std::uint8_t* buffer) {
  if (!m_pTransfers) return kRefused;
  return m_bUseChannel2 ? m_pTransfers->SendPacketIn2(header, buffer)
                        : m_pTransfers->SendPacketIn(header, buffer);
}

std::uint32_t CHidProperty::Reserved14() {
  return m_pTransfers ? m_pTransfers->Reserved11() : kRefused;
}

std::uint32_t CHidProperty::Yv_IsWqHid(std::uint32_t devInst) {
  constexpr const char* kTag = "CHidProperty::Yv_IsWqHid";
  if (Yv_OpenDeviceByDevInst(devInst) != 0) {
    CMsg::Instance().Log(3, kTag, "DevInst: %d, Not WQ Hid Device\n", static_cast<int>(devInst));
    return 0;
  }
  CMsg::Instance().Log(0, kTag, "DevInst: %d, WQ Hid Device\n", static_cast<int>(devInst));
  Yv_CloseDevice();
  return 1;
}

std::uint32_t CHidProperty::EnableChannel2() {
  m_bUseChannel2 = true;
  return 1;
}

}  // namespace qzhid
