// One vendor request as it arrives at the hub, unpacked from an output report.
#pragma once

#include <algorithm>

#include "virtualhub/base/bytes.h"

namespace virtualhub {

/// Views into the output report that carried the request.
struct VendorRequest {
  ByteView header;    ///< the report's whole header area: setup packet, then I2C configuration
  ByteView dataArea;  ///< everything after the header area

  std::uint8_t type() const { return header[0]; }
  std::uint8_t request() const { return header[1]; }
  std::uint16_t key() const { return BigEndian16(header, 0); }
  std::uint16_t value() const { return LittleEndian16(header, 2); }
  std::uint16_t index() const { return LittleEndian16(header, 4); }
  std::uint32_t address() const { return LittleEndian32(header, 2); }

  /// 0x40F2 and 0x40F5 carry a raw block instead of a setup packet.
  bool IsRaw() const { return key() == 0x40F2 || key() == 0x40F5; }

  /// The I2C read 0x40D6 has an answer although its direction bit says otherwise.
  bool IsIn() const { return (type() & 0x80) != 0 || key() == 0x40D6; }

  /// I2C transfers use byte 7 of the header as their fifth address byte.
  bool IsI2cTransfer() const { return key() == 0x40C6 || key() == 0x40D6 || key() == 0xC0D6; }

  /// Length of the data stage in bytes.
  std::size_t length() const {
    if (IsRaw()) return key() == 0x40F5 ? std::min<std::size_t>(dataArea.size(), 128) : 0;
    return IsI2cTransfer() ? header[6] : LittleEndian16(header, 6);
  }

  /// The data stage of an OUT request, empty for an IN request. The caller has checked that it
  /// fits the data area.
  ByteView data() const { return IsIn() ? ByteView() : dataArea.first(length()); }
};

}  // namespace virtualhub
