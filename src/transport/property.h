// The device that vendor requests currently go to.
#pragma once

#include <cstdint>

#include "transport/result.h"
#include "transport/setup_packet.h"

namespace qzhid {

/// Results are 0 for success or an error as in result.h, unless said otherwise.
class IPropertyEx {
 public:
  virtual ~IPropertyEx() = default;

  virtual std::uint32_t Yv_OpenDeviceByDevInst(std::uint32_t) { return kRefused; }
  virtual std::uint32_t Yv_CloseDevice() { return kRefused; }

  /// Prepares and releases the driver behind the object; non-zero on success.
  virtual std::uint32_t Init() = 0;
  virtual std::uint32_t UnInit() = 0;

  /// Sends one vendor request; arguments as in ITransfers.
  virtual std::uint32_t Yv_SendVDCmd(std::uint8_t, std::uint8_t, std::uint16_t, std::uint16_t,
                                     std::uint8_t*, std::uint32_t, std::uint32_t) {
    return kRefused;
  }

  virtual std::uint32_t Reserved7() { return kRefused; }
  virtual std::uint32_t Reserved8() { return kRefused; }
  virtual std::uint32_t Reserved9() { return kRefused; }
  virtual std::uint32_t Reserved10() { return kRefused; }

  /// Send a ready header: without data, with data OUT, with data IN.
  virtual std::uint32_t CtlPipeNoDataOut(const SetupPacket&) { return kRefused; }
  virtual std::uint32_t CtlPipeOut(const PacketHeader&, std::uint8_t*) { return kRefused; }
  virtual std::uint32_t CtlPipeIn(const PacketHeader&, std::uint8_t*) { return kRefused; }

  virtual std::uint32_t Reserved14() { return kRefused; }
  virtual std::uint32_t Reserved15() { return kRefused; }
  virtual std::uint32_t Reserved16() { return 0; }
  virtual std::uint32_t Reserved17() { return 0; }

  /// Whether the device of that number is one of the family: 1 or 0.
  virtual std::uint32_t Yv_IsWqHid(std::uint32_t) { return 0; }

  virtual std::uint32_t Reserved19() { return 0; }
  virtual std::uint32_t Reserved20() { return 0; }
  virtual std::uint32_t Reserved21() { return 0; }

  /// Makes all later requests use the second channel. Returns 1 where there is one, else 0.
  virtual std::uint32_t EnableChannel2() { return 0; }
};

}  // namespace qzhid
