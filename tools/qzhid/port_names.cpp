#include "qzhid/port_names.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string_view>

#include "common/files.h"
#include "common/texts.h"
#include "qzhid/failure.h"
#include "qzhid/location.h"

namespace qzhid {

namespace {

constexpr std::size_t kLongestFile = 0x100000;

std::string Trimmed(const std::string& text) {
  constexpr const char* kBlanks = " \t\r";
  const std::size_t start = text.find_first_not_of(kBlanks);
  if (start == std::string::npos) return "";
  return text.substr(start, text.find_last_not_of(kBlanks) - start + 1);
}

[[noreturn]] void Reject(const std::filesystem::path& file, const std::string& why) {
  throw Failure(Exit::Failed, "the port names in " + file.string() + " are not usable: " + why, "",
                "correct the file; its lines look like this: bay 3 = 1-3.1");
}

std::string Text(const std::filesystem::path& file) {
  if (!std::filesystem::is_regular_file(file)) Reject(file, "it is not a regular file");
  try {
    const tools::Bytes bytes = virtualhub::ReadWholeFile(file, kLongestFile);
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    std::string text(bytes.begin(), bytes.end());
    if (text.starts_with(kByteOrderMark)) text.erase(0, kByteOrderMark.size());
    return text;
  } catch (const tools::FileError& error) {
    Reject(file, error.what());
  }
}

// Whether --hub takes a text for something else than a name, so that it would also name other hubs.
bool IsOtherSelector(const std::string& name) {
  const std::string text = Upper(name);
  const std::size_t colon = std::min(text.find(':'), text.size() - 1);
  const bool areIds =
      tools::ParseHexNumber(text.substr(0, colon)) && tools::ParseHexNumber(text.substr(colon + 1));
  return IsPortId(text) || areIds || text.starts_with("INSTANCE:") ||
         (text.starts_with("USB") && text.ends_with(')'));
}

bool HasControlCharacter(const std::string& text) {
  return std::any_of(text.begin(), text.end(),
                     [](unsigned char c) { return std::iscntrl(c) != 0; });
}

// Why a line cannot be used; empty when it can.
std::string WhyNotUsable(const PortNames& names, const std::string& name, const std::string& port) {
  if (name.empty() || port.empty()) return "is not NAME = PORT";
  if (HasControlCharacter(name)) return "has a name with a control character";
  if (IsOtherSelector(name))
    return "has the name '" + name + "', which already means something else";
  if (!IsPortId(port)) return "has '" + port + "', which is not a port id";
  if (names.count(name) != 0) return "names '" + name + "' again";
  const bool isNamed = std::any_of(names.begin(), names.end(), [&port](const auto& other) {
    return Upper(other.second) == Upper(port);
  });
  return isNamed ? "gives port " + port + " another name" : "";
}

}  // namespace

PortNames ReadPortNames(const std::filesystem::path& file) {
  PortNames names;
  std::error_code error;
  if (!std::filesystem::exists(file, error)) return names;
  std::istringstream lines(Text(file));
  std::size_t number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    line = Trimmed(line.substr(0, line.find('#')));
    if (line.empty()) continue;
    const std::size_t equals = std::min(line.find('='), line.size());
    const std::string name = Trimmed(line.substr(0, equals));
    const std::string port = Trimmed(line.substr(std::min(equals + 1, line.size())));
    const std::string reason = WhyNotUsable(names, name, port);
    if (!reason.empty()) Reject(file, "line " + std::to_string(number) + ' ' + reason);
    names.emplace(name, port);
  }
  return names;
}

}  // namespace qzhid
