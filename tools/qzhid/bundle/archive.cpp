#include "qzhid/bundle/archive.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

#include "virtualhub/base/crc32.h"

namespace qzhid {

namespace {

using virtualhub::Bytes;

std::uint32_t Crc32(std::string_view text) {
  return virtualhub::Crc32({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

/// Appends numbers in little-endian order, and texts.
class Writer {
 public:
  Writer& Number(std::uint32_t number, int bytes) {
    for (int i = 0; i < bytes; ++i) bytes_.push_back(static_cast<std::uint8_t>(number >> 8 * i));
    return *this;
  }
  Writer& Text(std::string_view text) {
    bytes_.insert(bytes_.end(), text.begin(), text.end());
    return *this;
  }
  std::size_t Size() const { return bytes_.size(); }
  std::string_view View() const {
    return {reinterpret_cast<const char*>(bytes_.data()), bytes_.size()};
  }
  Bytes Take() { return std::move(bytes_); }

 private:
  Bytes bytes_;
};

std::uint32_t Size32(std::size_t size) { return static_cast<std::uint32_t>(size); }

/// Date and time as MS-DOS wrote them.
std::uint32_t DosTime(std::time_t now) {
  std::tm time{};
  if (const std::tm* const utc = std::gmtime(&now); utc != nullptr) time = *utc;
  return static_cast<std::uint32_t>((time.tm_year - 80) << 25 | (time.tm_mon + 1) << 21 |
                                    time.tm_mday << 16 | time.tm_hour << 11 | time.tm_min << 5 |
                                    time.tm_sec / 2);
}

/// What the two headers of an entry have in common.
void PutZipEntry(Writer& file, const ArchiveEntry& entry, std::time_t now) {
  constexpr std::uint32_t kVersion = 20, kNamesAreUtf8 = 0x0800, kStored = 0;
  const std::uint32_t size = Size32(entry.text.size());
  file.Number(kVersion, 2).Number(kNamesAreUtf8, 2).Number(kStored, 2).Number(DosTime(now), 4);
  file.Number(Crc32(entry.text), 4).Number(size, 4).Number(size, 4);
  file.Number(Size32(entry.name.size()), 2).Number(0, 2);
}

/// A number of a tar header, in octal with a zero byte after it.
std::string Octal(std::uint64_t number, int digits) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%0*llo", digits,
                static_cast<unsigned long long>(number));
  return std::string(text.data()) + '\0';
}

std::string TarHeader(const ArchiveEntry& entry, std::time_t now) {
  constexpr std::size_t kBlock = 512, kName = 100, kSum = 148;
  std::string header = entry.name.substr(0, kName);
  header.resize(kName, '\0');
  header += Octal(0644, 7) + Octal(0, 7) + Octal(0, 7) + Octal(entry.text.size(), 11) +
            Octal(static_cast<std::uint64_t>(now), 11) + "        0";
  header.resize(257, '\0');
  header += std::string("ustar\0", 6) + "00";
  header.resize(kBlock, '\0');
  std::uint64_t sum = 0;
  for (const char c : header) sum += static_cast<std::uint8_t>(c);
  header.replace(kSum, 7, Octal(sum, 6));
  return header;
}

std::string MakeTar(const std::vector<ArchiveEntry>& entries, std::time_t now) {
  constexpr std::size_t kBlock = 512;
  std::string tar;
  for (const ArchiveEntry& entry : entries) {
    tar += TarHeader(entry, now) + entry.text;
    tar.resize((tar.size() + kBlock - 1) / kBlock * kBlock, '\0');
  }
  return tar.append(2 * kBlock, '\0');
}

}  // namespace

Bytes MakeZip(const std::vector<ArchiveEntry>& entries, std::time_t now) {
  Writer file, directory;
  for (const ArchiveEntry& entry : entries) {
    directory.Number(0x02014B50, 4).Number(20, 2);
    PutZipEntry(directory, entry, now);
    directory.Number(0, 2).Number(0, 2).Number(0, 2).Number(0, 4);
    directory.Number(Size32(file.Size()), 4).Text(entry.name);
    file.Number(0x04034B50, 4);
    PutZipEntry(file, entry, now);
    file.Text(entry.name).Text(entry.text);
  }
  const std::uint32_t count = Size32(entries.size()), start = Size32(file.Size());
  file.Text(directory.View()).Number(0x06054B50, 4).Number(0, 4).Number(count, 2).Number(count, 2);
  file.Number(Size32(directory.Size()), 4).Number(start, 4).Number(0, 2);
  return file.Take();
}

Bytes MakeTarGz(const std::vector<ArchiveEntry>& entries, std::time_t now) {
  constexpr std::size_t kLongestBlock = 0xFFFF;
  const std::string tar = MakeTar(entries, now);
  Writer file;
  file.Number(0x00088B1F, 4).Number(static_cast<std::uint32_t>(now), 4).Number(0xFF00, 2);
  for (std::size_t at = 0; at < tar.size(); at += kLongestBlock) {
    const std::string_view block = std::string_view(tar).substr(at, kLongestBlock);
    const std::uint32_t length = Size32(block.size());
    file.Number(at + length == tar.size() ? 1 : 0, 1).Number(length, 2).Number(~length, 2);
    file.Text(block);
  }
  file.Number(Crc32(tar), 4).Number(Size32(tar.size()), 4);
  return file.Take();
}

}  // namespace qzhid
