#include "virtualhub/capture/capture_file.h"

#include <algorithm>

#include "virtualhub/capture/pcapng_format.h"

namespace virtualhub {

namespace {

constexpr std::uint32_t kOldPacketBlock = 2, kSimplePacketBlock = 3;
constexpr std::uint32_t kMicrosecondMagic = 0xA1B2C3D4, kNanosecondMagic = 0xA1B23C4D;
constexpr std::size_t kBlockFrame =
    12;  // type and length before the body, the length again after it
// What no packet and no block exceeds, so that damaged lengths are told from long packets.
constexpr std::uint32_t kMostLength = 0x8100000;
constexpr std::size_t kMostInterfaces = 1000;

std::uint32_t MagicOf(ByteView bytes, bool isBigEndian) {
  return bytes.size() < 4 ? 0 : NumberReader(bytes, isBigEndian).At32(0);
}

bool IsPcapMagic(std::uint32_t magic) {
  return magic == kMicrosecondMagic || magic == kNanosecondMagic;
}

}  // namespace

std::uint64_t NumberReader::At(std::size_t offset, std::size_t size) const {
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < size; ++i) {
    number = number << 8 | bytes_[offset + (isBigEndian_ ? i : size - 1 - i)];
  }
  return number;
}

bool CaptureFile::IsCapture(ByteView beginning) {
  const std::uint32_t little = MagicOf(beginning, false);
  return little == kSectionBlock || IsPcapMagic(little) || IsPcapMagic(MagicOf(beginning, true));
}

CaptureFile::CaptureFile(std::istream& stream, ByteView beginning)
    : stream_(stream), offset_(beginning.size()) {
  Bytes magic(beginning.begin(), beginning.end()), rest;
  Take(rest, 4 - magic.size());
  Append(magic, rest);
  if (!IsCapture(magic)) throw CaptureError("is no capture");
  isPcapng_ = MagicOf(magic, false) == kSectionBlock;
  if (!(isPcapng_ ? BeginSection(magic) : BeginPcap(magic))) {
    throw CaptureError("ends in its heading");
  }
}

bool CaptureFile::Next(CapturePacket& packet) {
  return isPcapng_ ? NextPcapng(packet) : NextPcap(packet);
}

void CaptureFile::Fail(const std::string& what) const {
  throw CaptureError("is damaged at byte " + std::to_string(start_) + ", after frame " +
                     std::to_string(frames_) + ": " + what);
}

// Fewer bytes at the end of the file, which is cut off there if there was one.
bool CaptureFile::Take(Bytes& bytes, std::size_t size) {
  bytes.resize(size);
  stream_.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(size));
  bytes.resize(static_cast<std::size_t>(stream_.gcount()));
  offset_ += bytes.size();
  if (bytes.size() < size && offset_ > start_) isCutOff_ = true;
  return bytes.size() == size;
}

bool CaptureFile::Skip(std::uint64_t size) {
  if (size == 0) return true;
  stream_.ignore(static_cast<std::streamsize>(size));
  const auto skipped = static_cast<std::uint64_t>(stream_.gcount());
  offset_ += skipped;
  if (skipped < size) isCutOff_ = true;
  return skipped == size;
}

void CaptureFile::Stamp(CapturePacket& packet, const Interface& from, std::uint64_t ticks) {
  constexpr std::uint64_t kUsPerSecond = 1'000'000;
  constexpr std::uint64_t kLastSecond = 253'402'300'799;  // of the year 9999
  const std::uint64_t seconds =
      std::min(from.startSeconds + ticks / from.ticksPerSecond, kLastSecond);
  packet.number = ++frames_;
  packet.timeUs =
      seconds * kUsPerSecond + ticks % from.ticksPerSecond * kUsPerSecond / from.ticksPerSecond;
  packet.linkType = from.linkType;
  packet.isBigEndian = isBigEndian_;
}

// ---- pcap ---------------------------------------------------------------------------------------

bool CaptureFile::BeginPcap(const Bytes& magic) {
  constexpr std::uint64_t kNanoseconds = 1'000'000'000;
  isBigEndian_ = IsPcapMagic(MagicOf(magic, true));
  Interface only;
  if (MagicOf(magic, isBigEndian_) == kNanosecondMagic) only.ticksPerSecond = kNanoseconds;
  Bytes rest;
  if (!Take(rest, 20)) return false;
  only.linkType = static_cast<std::uint16_t>(Numbers(rest).At32(16));
  interfaces_ = {only};
  return true;
}

bool CaptureFile::NextPcap(CapturePacket& packet) {
  start_ = offset_;
  Bytes heading;
  if (!Take(heading, 16)) return false;
  const NumberReader numbers = Numbers(heading);
  const std::uint32_t length = numbers.At32(8);
  if (length > kMostLength) Fail("a packet has a length of " + std::to_string(length));
  const std::size_t kept = std::min<std::size_t>(length, kMostPacket);
  if (!Take(packet.data, kept) || !Skip(length - kept)) return false;
  const Interface& only = interfaces_.front();
  Stamp(packet, only, numbers.At32(0) * only.ticksPerSecond + numbers.At32(4));
  return true;
}

// ---- pcapng -------------------------------------------------------------------------------------

bool CaptureFile::NextPcapng(CapturePacket& packet) {
  bool isPacket = false;
  while (!isPacket) {
    if (!TakeBlock(packet, isPacket)) return false;
  }
  return true;
}

// False at the end of the file.
bool CaptureFile::TakeBlock(CapturePacket& packet, bool& isPacket) {
  start_ = offset_;
  Bytes heading;
  if (!Take(heading, 4)) return false;
  if (MagicOf(heading, false) == kSectionBlock) return BeginSection(heading);
  const std::uint32_t type = Numbers(heading).At32(0);
  if (!Take(heading, 4)) return false;
  const std::uint32_t length = Numbers(heading).At32(0);
  if (length < kBlockFrame || length % 4 != 0 || length > kMostLength) {
    Fail("a block has a length of " + std::to_string(length));
  }
  const auto size = static_cast<std::uint32_t>(length - kBlockFrame);
  isPacket = type == kPacketBlock || type == kSimplePacketBlock || type == kOldPacketBlock;
  const bool isWhole = isPacket                  ? TakePacket(type, size, packet)
                       : type == kInterfaceBlock ? TakeInterface(size)
                                                 : Skip(size);
  return isWhole && EndBlock(length);
}

// After the type of its block, which has neither of the two orders.
bool CaptureFile::BeginSection(Bytes& heading) {
  if (!Take(heading, 8)) return false;
  isBigEndian_ = NumberReader(heading, true).At32(4) == kByteOrder;
  const NumberReader numbers = Numbers(heading);
  if (numbers.At32(4) != kByteOrder) Fail("a section has no byte order");
  const std::uint32_t length = numbers.At32(0);
  if (length < 28 || length % 4 != 0 || length > kMostLength) {
    Fail("a section has a heading of " + std::to_string(length) + " bytes");
  }
  interfaces_.clear();
  return Skip(length - 16) && EndBlock(length);
}

bool CaptureFile::TakeInterface(std::uint32_t size) {
  constexpr std::size_t kOptions = 8;
  if (size < kOptions || size > kMostPacket) Fail("an interface has a wrong length");
  if (interfaces_.size() == kMostInterfaces) Fail("there are too many interfaces");
  Bytes body;
  if (!Take(body, size)) return false;
  const NumberReader numbers = Numbers(body);
  Interface added;
  added.linkType = numbers.At16(0);
  for (std::size_t at = kOptions; at + 4 <= body.size();) {
    const std::uint16_t code = numbers.At16(at), length = numbers.At16(at + 2);
    if (code == 0) break;
    if (!Fits(body.size(), at + 4, length)) Fail("an option has a wrong length");
    TakeOption(added, code, ByteView(body).subspan(at + 4, length));
    at += 4 + (length + 3u) / 4 * 4;
  }
  interfaces_.push_back(added);
  return true;
}

void CaptureFile::TakeOption(Interface& added, std::uint16_t code, ByteView value) const {
  constexpr std::uint16_t kResolution = 9, kTimeOffset = 14;
  constexpr std::uint8_t kBinary = 0x80, kMostBits = 40, kMostDigits = 12;
  if (code == kTimeOffset && value.size() == 8) {
    added.startSeconds = NumberReader(value, isBigEndian_).At(0, 8);
  }
  if (code != kResolution || value.size() != 1) return;
  const std::uint8_t power = value[0] & ~kBinary;
  const bool isBinary = (value[0] & kBinary) != 0;
  if (power > (isBinary ? kMostBits : kMostDigits)) Fail("an interface has an unknown resolution");
  added.ticksPerSecond = 1;
  for (std::uint8_t i = 0; i < power; ++i) added.ticksPerSecond *= isBinary ? 2 : 10;
}

bool CaptureFile::TakePacket(std::uint32_t type, std::uint32_t size, CapturePacket& packet) {
  const std::uint32_t heading = type == kSimplePacketBlock ? 4 : 20;
  if (size < heading) Fail("a packet has no heading");
  Bytes fields;
  if (!Take(fields, heading)) return false;
  const NumberReader numbers = Numbers(fields);
  std::uint32_t interface = 0, length = std::min(numbers.At32(0), size - heading);
  std::uint64_t ticks = 0;
  if (type != kSimplePacketBlock) {
    interface = type == kPacketBlock ? numbers.At32(0) : numbers.At16(0);
    ticks = std::uint64_t{numbers.At32(4)} << 32 | numbers.At32(8);
    length = numbers.At32(12);
  }
  if (length > size - heading) Fail("a packet is longer than its block");
  if (interface >= interfaces_.size()) Fail("a packet is of an unknown interface");
  const std::size_t kept = std::min<std::size_t>(length, kMostPacket);
  if (!Take(packet.data, kept) || !Skip(size - heading - kept)) return false;
  Stamp(packet, interfaces_[interface], ticks);
  return true;
}

bool CaptureFile::EndBlock(std::uint32_t length) {
  Bytes again;
  if (!Take(again, 4)) return false;
  if (Numbers(again).At32(0) != length) Fail("the two lengths of a block differ");
  return true;
}

}  // namespace virtualhub
