// How vendor requests reach one opened device.
#pragma once

#include <cstdint>

#include "transport/result.h"
#include "transport/setup_packet.h"

namespace qzhid {

/// How long a request waits for the device to be free, in milliseconds.
inline constexpr std::uint32_t kRequestTimeoutMs = 5000;

/// A transport implements what it can; the rest answers as here. All results are 0 for success or
/// an error as in result.h.
class ITransfers {
 public:
  virtual ~ITransfers() = default;

  virtual std::uint32_t Yv_OpenDeviceByDevInst(std::uint32_t) { return kRefused; }
  virtual std::uint32_t Yv_CloseDevice() { return kRefused; }

  /// Sends one vendor request. `data` holds wLength bytes, sent or received by bit 7 of
  /// bmRequestType; `timeoutMs` is how long to wait for the device to be free.
  virtual std::uint32_t Yv_SendVDCmd(std::uint8_t, std::uint8_t, std::uint16_t, std::uint16_t,
                                     std::uint8_t*, std::uint32_t, std::uint32_t) {
    return kRefused;
  }
  /// The same over the second channel.
  virtual std::uint32_t Yv_SendVDCmd2(std::uint8_t, std::uint8_t, std::uint16_t, std::uint16_t,
                                      std::uint8_t*, std::uint32_t, std::uint32_t) {
    return kRefused;
  }
  /// An OUT request without data stage.
  virtual std::uint32_t SendNoDataOut(const SetupPacket&) { return kRefused; }

  /// Send a ready header with as many data bytes as its byte 6 says, OUT or IN, over either
  /// channel.
  virtual std::uint32_t SendPacketOut(const PacketHeader&, std::uint8_t*) { return kRefused; }
  virtual std::uint32_t SendPacketIn(const PacketHeader&, std::uint8_t*) { return kRefused; }
  virtual std::uint32_t SendPacketOut2(const PacketHeader&, std::uint8_t*) { return kRefused; }
  virtual std::uint32_t SendPacketIn2(const PacketHeader&, std::uint8_t*) { return kRefused; }

  // Kept for transports with more to offer than HID.
  virtual std::uint32_t Reserved11() { return kRefused; }
  virtual std::uint32_t Reserved12() { return kRefused; }
  virtual std::uint32_t Reserved13() { return kRefused; }
  virtual std::uint32_t Reserved14() { return 0; }
  virtual std::uint32_t Reserved15() { return 0; }
  virtual std::uint32_t Reserved16() { return 0; }
};

}  // namespace qzhid
