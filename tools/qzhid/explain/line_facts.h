// What the texts and numbers of a line say.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "qzhid/explain/log_jobs.h"
#include "qzhid/explain/log_reader.h"

namespace qzhid {

/// A text of a line, made safe to show and cut off where it is too long.
std::string ShortText(std::string_view text);

/// "2E7C:0818".
std::string TextOfIds(std::uint32_t vid, std::uint32_t pid);
/// "2E7C:0818" of "HID\VID_2E7C&PID_0818&REV_0100"; the text itself when it has no ids.
std::string IdsOf(std::string_view hardwareId);

/// "Debian GNU/Linux 12 (bookworm), 6.1.0, x64" of the line that describes the host.
std::string HostOf(std::string_view text);
System SystemOf(const std::string& host);

/// The request of which a line has logged the bytes, from the value `first`.
LoggedRequest RequestOf(const LogValues& values, std::size_t first);

/// A line that says what went wrong. In which step is not known here.
Trouble TroubleOf(const LogEvent& event);

}  // namespace qzhid
