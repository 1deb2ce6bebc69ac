// The packets of a capture file, pcapng (draft-ietf-opsawg-pcapng) or the older pcap, in either
// byte order.
#pragma once

#include <cstdint>
#include <istream>
#include <stdexcept>
#include <string>
#include <vector>

#include "virtualhub/base/bytes.h"

namespace virtualhub {

/// Why a capture cannot be read or used: the frame or byte, and the reason.
class CaptureError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Numbers in bytes of either order.
class NumberReader {
 public:
  explicit NumberReader(ByteView bytes, bool isBigEndian = false)
      : bytes_(bytes), isBigEndian_(isBigEndian) {}

  /// The number of `size` bytes at `offset`; the caller has checked that it lies inside.
  std::uint64_t At(std::size_t offset, std::size_t size) const;
  std::uint32_t At32(std::size_t offset) const { return static_cast<std::uint32_t>(At(offset, 4)); }
  std::uint16_t At16(std::size_t offset) const { return static_cast<std::uint16_t>(At(offset, 2)); }

 private:
  ByteView bytes_;
  bool isBigEndian_;
};

/// One packet.
struct CapturePacket {
  std::uint64_t number = 0;  ///< of the frame, from 1, as Wireshark shows it
  std::uint64_t timeUs = 0;  ///< since 1970
  std::uint16_t linkType = 0;
  bool isBigEndian = false;  ///< the computer that captured it
  Bytes data;                ///< at most the first kMostPacket bytes
};

class CaptureFile {
 public:
  /// Longer packets lose their end; none with a report is that long.
  static constexpr std::size_t kMostPacket = 0x10100;

  /// Whether a file that begins with these bytes is a capture, as far as its first four say it.
  static bool IsCapture(ByteView beginning);

  /// The stream must outlive the object; `beginning` is what was read of it before, four bytes at
  /// most. Throws CaptureError when it holds no capture.
  explicit CaptureFile(std::istream& stream, ByteView beginning = {});

  /// The next packet; false at the end. Throws CaptureError where the file is damaged.
  bool Next(CapturePacket& packet);

  /// Whether the file has ended in the middle of a packet.
  bool IsCutOff() const { return isCutOff_; }
  std::uint64_t frames() const { return frames_; }
  std::uint64_t bytes() const { return offset_; }

 private:
  struct Interface {
    std::uint16_t linkType = 0;
    std::uint64_t ticksPerSecond = 1'000'000;
    std::uint64_t startSeconds = 0;  ///< of its time, since 1970
  };

  [[noreturn]] void Fail(const std::string& what) const;
  NumberReader Numbers(const Bytes& bytes) const { return NumberReader(bytes, isBigEndian_); }
  bool Take(Bytes& bytes, std::size_t size);
  bool Skip(std::uint64_t size);
  void Stamp(CapturePacket& packet, const Interface& from, std::uint64_t ticks);

  bool BeginPcap(const Bytes& magic);
  bool NextPcap(CapturePacket& packet);

  bool NextPcapng(CapturePacket& packet);
  bool TakeBlock(CapturePacket& packet, bool& isPacket);
  bool BeginSection(Bytes& heading);
  bool TakeInterface(std::uint32_t size);
  void TakeOption(Interface& added, std::uint16_t code, ByteView value) const;
  bool TakePacket(std::uint32_t type, std::uint32_t size, CapturePacket& packet);
  bool EndBlock(std::uint32_t length);

  std::istream& stream_;
  bool isPcapng_ = false, isBigEndian_ = false, isCutOff_ = false;
  std::uint64_t offset_ = 0;  ///< bytes that were read
  std::uint64_t start_ = 0;   ///< of the current packet or block
  std::uint64_t frames_ = 0;
  std::vector<Interface> interfaces_;  ///< of the section; pcap has one
};

}  // namespace virtualhub
