#include "qzhid/explain/line_facts.h"

#include <array>
#include <cstdio>
#include <utility>

#include "qzhid/explain/readable_text.h"

namespace qzhid {

std::string ShortText(std::string_view text) {
  constexpr std::size_t kLongest = 400;
  return ReadableText(text.substr(0, kLongest));
}

std::string TextOfIds(std::uint32_t vid, std::uint32_t pid) {
  char text[24] = {};
  std::snprintf(text, sizeof(text), "%04X:%04X", vid & 0xFFFF, pid & 0xFFFF);
  return text;
}

std::string IdsOf(std::string_view hardwareId) {
  const std::size_t vid = hardwareId.find("VID_"), pid = hardwareId.find("PID_");
  if (vid == std::string_view::npos || pid == std::string_view::npos) {
    return std::string(hardwareId.substr(0, hardwareId.find(',')));
  }
  return std::string(hardwareId.substr(vid + 4, 4)) + ":" +
         std::string(hardwareId.substr(pid + 4, 4));
}

std::string HostOf(std::string_view text) {
  std::string host(text);
  for (const auto& [label, shown] : {std::pair{"OS Type:", ""}, std::pair{" OS Version:", ", "},
                                     std::pair{" Platform:", ", "}}) {
    const std::size_t at = host.find(label);
    if (at != std::string::npos) host.replace(at, std::string_view(label).size(), shown);
  }
  return host;
}

System SystemOf(const std::string& host) {
  if (host.find("Windows") != std::string::npos) return System::Windows;
  const bool isNamed = !host.empty() && !host.starts_with(',') && host.find(", ") != host.npos;
  const bool isVirtual = host.starts_with("Virtual Host");
  return isNamed && !isVirtual ? System::Linux : System::Unknown;
}

LoggedRequest RequestOf(const LogValues& values, std::size_t first) {
  std::array<std::uint32_t, 11> bytes{};
  for (std::size_t i = 0; i + first < values.count; ++i) bytes[i] = values.Number(i + first);
  LoggedRequest request;
  request.type = static_cast<std::uint8_t>(bytes[0]);
  request.code = static_cast<std::uint8_t>(bytes[1]);
  request.value = static_cast<std::uint16_t>(bytes[2] | bytes[3] << 8);
  request.index = static_cast<std::uint16_t>(bytes[4] | bytes[5] << 8);
  request.length = bytes[6];
  if (values.count - first > 8) request.target = static_cast<std::uint8_t>(bytes[8]);
  return request;
}

Trouble TroubleOf(const LogEvent& event) {
  Trouble trouble;
  trouble.line = event.line;
  trouble.text = ShortText(event.text);
  trouble.number = event.number;
  trouble.timeUs = event.timeUs;
  trouble.codeKind = event.line->code;
  if (trouble.codeKind != CodeKind::None && event.values.count > 0) {
    trouble.code = event.values.Number(0);
  }
  return trouble;
}

}  // namespace qzhid
