// A capture file in the pcapng format (draft-ietf-opsawg-pcapng), which Wireshark reads.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>

#include "virtualhub/base/files.h"

namespace virtualhub {

/// One section with one interface. Each packet is written at once and as a whole, so what is in the
/// file can be read at any time.
class PcapngFile {
 public:
  enum class Existing {
    Kept,  ///< the new file gets another name: "wire-2.pcapng", "wire-3.pcapng" and so on
    Replaced
  };

  /// Throws FileError.
  PcapngFile(const std::filesystem::path& path, Existing existing, std::uint16_t linkType);

  const std::filesystem::path& path() const { return path_; }

  /// Adds a packet; the time is in microseconds since 1970. Throws FileError.
  void Write(std::uint64_t timeUs, ByteView packet);

 private:
  std::filesystem::path path_;
  std::ofstream stream_;
};

}  // namespace virtualhub
