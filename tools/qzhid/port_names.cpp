#include "qzhid/port_names.h"

#include <algorithm>
#include <sstream>

#include "common/files.h"
#include "qzhid/failure.h"

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
  try {
    const tools::Bytes bytes = virtualhub::ReadWholeFile(file, kLongestFile);
    return {bytes.begin(), bytes.end()};
  } catch (const tools::FileError& error) {
    Reject(file, error.what());
  }
}

}  // namespace

PortNames ReadPortNames(const std::filesystem::path& file) {
  PortNames names;
  std::error_code error;
  if (!std::filesystem::exists(file, error)) return names;
  std::istringstream lines(Text(file));
  std::size_t number = 0;
  for (std::string line; std::getline(lines, line);) {
    const std::string place = "line " + std::to_string(++number) + " ";
    line = Trimmed(line.substr(0, line.find('#')));
    if (line.empty()) continue;
    const std::size_t equals = std::min(line.find('='), line.size());
    const std::string name = Trimmed(line.substr(0, equals));
    const std::string port = Trimmed(line.substr(std::min(equals + 1, line.size())));
    if (name.empty() || port.empty()) Reject(file, place + "is not NAME = PORT");
    if (!names.emplace(name, port).second) Reject(file, place + "names '" + name + "' again");
  }
  return names;
}

}  // namespace qzhid
