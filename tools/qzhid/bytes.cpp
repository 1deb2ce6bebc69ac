#include "qzhid/bytes.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include "qzhid/failure.h"
#include "qzhid/system.h"

namespace qzhid {

namespace {

bool ReadStream(std::istream& stream, Bytes& bytes) {
  bytes.assign(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
  return !stream.bad();
}

// Takes words like "01a0" and "0xff".
Bytes ParseHex(const std::vector<std::string>& words) {
  Bytes bytes;
  for (const std::string& word : words) {
    std::string digits;
    for (const char c : word) {
      if (c != ' ' && c != ',') digits += c;
    }
    if (digits.starts_with("0x") || digits.starts_with("0X")) digits.erase(0, 2);
    if (digits.size() % 2 != 0 ||
        digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
      throw Failure(Exit::WrongUse, "'" + word + "' is not bytes in hexadecimal", "",
                    "write two digits for each byte, as in 01a0ff");
    }
    for (std::size_t at = 0; at < digits.size(); at += 2) {
      bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(at, 2), nullptr, 16)));
    }
  }
  return bytes;
}

}  // namespace

bool ReadFile(const std::string& path, Bytes& bytes) {
  if (path == "-") {
    system::PassBytesUnchanged(system::Stream::Input);
    return ReadStream(std::cin, bytes);
  }
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) return false;
  std::ifstream file(path, std::ios::binary);
  return file.is_open() && ReadStream(file, bytes);
}

void WriteFile(const std::string& path, const Bytes& bytes) {
  const std::string part = path + ".part";
  std::ofstream file(part, std::ios::binary);
  for (const std::uint8_t byte : bytes) file.put(static_cast<char>(byte));
  file.close();
  std::error_code error;
  if (file) std::filesystem::rename(part, path, error);
  if (file && !error) return;
  std::filesystem::remove(part, error);
  throw Failure(Exit::Failed, path + " cannot be written", "", "name a file that you may write");
}

Bytes TakeBytes(const std::vector<std::string>& words, const std::string& file) {
  Bytes bytes = ParseHex(words);
  if (!file.empty() && !ReadFile(file, bytes)) {
    throw Failure(Exit::Failed, file + " cannot be read", "", "name a file that you may read");
  }
  if (bytes.empty()) {
    throw Failure(Exit::WrongUse, "there are no bytes to write", "",
                  "give them in hexadecimal or with --file FILE");
  }
  return bytes;
}

std::string HexText(const Bytes& bytes) {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
  }
  return text;
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
    text += " " + HexText({bytes[at]});
    if (at % kLine == kLine - 1 || at + 1 == bytes.size()) text += '\n';
  }
  return text;
}

}  // namespace qzhid
