// What a hub says about itself.
#pragma once

#include <cstdint>
#include <optional>

#include "qzhid/hubs.h"

namespace qzhid {

struct HubState {
  // From the status block; in the loader they may differ from the firmware's.
  std::uint32_t vid = 0;
  std::uint32_t pid = 0;
  std::optional<std::uint16_t> version;  ///< none in the loader

  std::string Text() const { return version ? VersionText(*version) : "loader"; }
};

/// What is known of a hub without more than a look at it.
struct HubSummary {
  std::string state;  ///< "firmware", "loader", "no permission", "no node", "silent" or "unknown"
  std::optional<std::uint16_t> version;
};

/// What to do about a hub that is in its loader, and about one that an update has lost.
std::string RecoverHub(const Hub& hub);
inline constexpr const char* kFindHub =
    "unplug it, plug it in again, and run 'qzhid info' and 'qzhid recover'";

/// Asks a hub of the last list. Throws Failure when it does not answer.
HubState ReadState(Host& host, const Hub& hub);

/// Looks at a hub of the last list, also one that does not answer or cannot be opened.
HubSummary Summarise(Host& host, const Hub& hub);
/// The same without a library to ask.
HubSummary SummariseUnread(const Hub& hub);

}  // namespace qzhid
