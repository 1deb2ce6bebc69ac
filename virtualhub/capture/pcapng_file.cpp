#include "virtualhub/capture/pcapng_file.h"

#include <string_view>

#include "virtualhub/capture/pcapng_format.h"

namespace virtualhub {

namespace {

constexpr std::uint16_t kMajor = 1, kMinor = 0;
constexpr std::uint16_t kApplication = 4;  // the option of a section that names its writer
constexpr std::string_view kWriter = "virtual hub";

void Pad(Bytes& bytes) { bytes.resize((bytes.size() + 3) / 4 * 4); }

// Types and lengths are around the body.
Bytes Block(std::uint32_t type, Bytes body) {
  Pad(body);
  const auto length = static_cast<std::uint32_t>(body.size() + 12);
  Bytes block;
  AppendLittleEndian(block, type);
  AppendLittleEndian(block, length);
  Append(block, body);
  AppendLittleEndian(block, length);
  return block;
}

Bytes Heading(std::uint16_t linkType) {
  Bytes section;
  AppendLittleEndian(section, kByteOrder);
  AppendLittleEndian(section, kMajor);
  AppendLittleEndian(section, kMinor);
  AppendLittleEndian(section, ~std::uint64_t{0});  // of unknown length
  AppendLittleEndian(section, kApplication);
  AppendLittleEndian(section, static_cast<std::uint16_t>(kWriter.size()));
  Append(section, Bytes(kWriter.begin(), kWriter.end()));
  Pad(section);
  AppendLittleEndian(section, std::uint32_t{0});  // the end of the options
  Bytes interface;
  AppendLittleEndian(interface, linkType);
  AppendLittleEndian(interface, std::uint16_t{0});
  // Packets may have any length; times are in microseconds unless an option says otherwise.
  AppendLittleEndian(interface, std::uint32_t{0});
  Bytes heading = Block(kSectionBlock, section);
  Append(heading, Block(kInterfaceBlock, interface));
  return heading;
}

}  // namespace

PcapngFile::PcapngFile(const std::filesystem::path& path, Existing existing, std::uint16_t linkType)
    : path_(path) {
  const Bytes heading = Heading(linkType);
  if (existing == Existing::Kept) {
    path_ = MakeNewFile(path, heading);
  } else {
    WriteFile(path, heading);
  }
  stream_.open(path_, std::ios::binary | std::ios::app);
}

void PcapngFile::Write(std::uint64_t timeUs, ByteView packet) {
  Bytes body;
  const auto size = static_cast<std::uint32_t>(packet.size());
  AppendLittleEndian(body, std::uint32_t{0});  // the interface
  AppendLittleEndian(body, static_cast<std::uint32_t>(timeUs >> 32));
  AppendLittleEndian(body, static_cast<std::uint32_t>(timeUs));
  AppendLittleEndian(body, size);  // in the file
  AppendLittleEndian(body, size);  // on the wire
  Append(body, packet);
  const Bytes block = Block(kPacketBlock, std::move(body));
  stream_.write(reinterpret_cast<const char*>(block.data()),
                static_cast<std::streamsize>(block.size()));
  stream_.flush();
  if (!stream_) throw FileError("cannot be written");
}

}  // namespace virtualhub
