// Waiting for a hub that has left the bus.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "qzhid/clock.h"
#include "qzhid/hubs.h"

namespace qzhid {

struct AwaitedHub {
  std::optional<Hub> hub{};           ///< after the whole time, also one that cannot be opened
  std::chrono::milliseconds away{0};  ///< until it was seen
};

/// The hub at that location, or without one the only hub, as soon as it is there and can be opened.
/// Calls `isAway` once when that takes more than a second.
AwaitedHub AwaitHub(Host& host, Clock& clock, const std::string& location,
                    std::chrono::seconds patience, const std::function<void()>& isAway);

}  // namespace qzhid
