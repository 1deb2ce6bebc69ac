#include "platform/linux/host_facts.h"

#include <algorithm>
#include <charconv>

namespace qzhid::platform {

namespace {

/// Takes the number off the front; no value, and nothing is taken, when there is no number.
std::optional<std::uint32_t> TakeNumber(std::string_view& text) {
  std::uint32_t number = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
  return number;
}

/// Takes the separator and the number after it off the front.
std::optional<std::uint32_t> TakeNumberBehind(std::string_view& text, char separator) {
  if (!text.starts_with(separator)) return std::nullopt;
  text.remove_prefix(1);
  return TakeNumber(text);
}

/// The value as a shell would read the assignment, without expansions.
std::string Unquote(std::string_view value) {
  std::string plain;
  char quote = 0;
  for (std::size_t i = 0; i < value.size(); ++i) {
    const char c = value[i];
    if (c == '\\' && quote != '\'' && i + 1 < value.size()) {
      plain += value[++i];
    } else if (quote == 0 && (c == '"' || c == '\'')) {
      quote = c;
    } else if (c == quote) {
      quote = 0;
    } else {
      plain += c;
    }
  }
  return plain;
}

}  // namespace

std::optional<std::string> OsReleaseValue(std::string_view text, std::string_view key) {
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    if (!line.starts_with(key)) continue;
    line.remove_prefix(key.size());
    if (line.starts_with('=')) return Unquote(line.substr(1));
  }
  return std::nullopt;
}

KernelRelease ParseKernelRelease(std::string_view text) {
  KernelRelease release;
  release.major = TakeNumber(text).value_or(0);
  release.minor = TakeNumberBehind(text, '.').value_or(0);
  release.build = TakeNumberBehind(text, '.').value_or(0);
  release.updateRevision = TakeNumberBehind(text, '-');
  return release;
}

Architecture ParseMachine(std::string_view machine) {
  if (machine == "x86_64") return Architecture::X64;
  if (machine == "aarch64") return Architecture::Arm64;
  const bool isX86 = machine.size() == 4 && machine[0] == 'i' && machine.substr(2) == "86";
  return isX86 ? Architecture::X86 : Architecture::Unknown;
}

}  // namespace qzhid::platform
