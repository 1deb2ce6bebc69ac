#pragma once

#include "virtualhub/base/bytes.h"

namespace virtualhub {

/// CRC-32 (reflected polynomial 0xEDB88320) of `bytes`, continuing from the checksum `previous` of
/// the bytes before them.
std::uint32_t Crc32(ByteView bytes, std::uint32_t previous = 0);

}  // namespace virtualhub
