// The numbers of the pcapng format (draft-ietf-opsawg-pcapng).
#pragma once

#include <cstdint>

namespace virtualhub {

inline constexpr std::uint32_t kSectionBlock = 0x0A0D0D0A, kInterfaceBlock = 1, kPacketBlock = 6;
inline constexpr std::uint32_t kByteOrder = 0x1A2B3C4D;

}  // namespace virtualhub
