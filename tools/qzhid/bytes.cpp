#include "qzhid/bytes.h"

#include <array>
#include <cstdio>
#include <iostream>

#include "common/files.h"
#include "qzhid/failure.h"
#include "qzhid/system.h"

namespace qzhid {

namespace {

constexpr std::size_t kMostBytes = 0x10000000;  // larger than any memory behind a hub

Bytes ParseWords(const std::vector<std::string>& words) {
  Bytes bytes;
  for (const std::string& word : words) {
    const auto parsed = tools::ParseHexBytes(word);
    if (!parsed) {
      throw Failure(Exit::WrongUse, "'" + word + "' is not bytes in hexadecimal", "",
                    "write two digits for each byte, as in 01a0ff");
    }
    bytes.insert(bytes.end(), parsed->begin(), parsed->end());
  }
  return bytes;
}

Bytes ReadBytes(const std::string& file) {
  if (file == "-") system::PassBytesUnchanged(system::Stream::Input);
  try {
    return tools::ReadFile(file, kMostBytes);
  } catch (const tools::FileError& error) {
    throw Failure(Exit::Failed, (file == "-" ? "standard input " : file + ' ') + error.what(), "",
                  "name a file that you have permission to read");
  }
}

void PrintBytes(const Bytes& bytes) {
  system::PassBytesUnchanged(system::Stream::Output);
  std::cout.write(reinterpret_cast<const char*>(bytes.data()),
                  static_cast<std::streamsize>(bytes.size()));
  std::cout.flush();
  if (!std::cout)
    throw Failure(Exit::Failed, "the bytes cannot be written", "", "free some disk space");
}

}  // namespace

void SaveBytes(const std::string& path, const Bytes& bytes) {
  if (path == "-") return PrintBytes(bytes);
  try {
    tools::WriteFile(path, bytes);
  } catch (const tools::FileError& error) {
    throw Failure(Exit::Failed, path + " " + error.what(), "",
                  "name a file that you have permission to write");
  }
}

Bytes TakeBytes(const std::vector<std::string>& words, const std::string& file) {
  Bytes bytes = file.empty() ? ParseWords(words) : ReadBytes(file);
  if (bytes.empty()) {
    throw Failure(Exit::WrongUse, "there are no bytes to write", "",
                  "give them in hexadecimal or with --file FILE");
  }
  return bytes;
}

std::string HexDump(const Bytes& bytes, std::uint32_t address) {
  constexpr std::size_t kLine = 16;
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    if (at % kLine == 0) {
      std::array<char, 16> start{};
      std::snprintf(start.data(), start.size(), "%08x ",
                    static_cast<unsigned>(address + static_cast<std::uint32_t>(at)));
      text += start.data();
    }
    text += " " + tools::HexText(tools::ByteView(&bytes[at], 1));
    if (at % kLine == kLine - 1 || at + 1 == bytes.size()) text += '\n';
  }
  return text;
}

}  // namespace qzhid
