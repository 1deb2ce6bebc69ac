// What a user writes to name hubs.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "qzhid/hubs.h"

namespace qzhid {

/// How the help describes a selector.
inline constexpr const char* kSelectors =
    "port, name, location or VID:PID (see 'qzhid list'); default the only hub";

/// Whether a hub is what the selector names, as a whole: its port id (with or without the
/// controller), its name, its location path or whole steps at the end of it, "VID:PID", "vid=VID",
/// "pid=PID", or "instance:N", whose number is only good for this process. Letter case counts in
/// names only; an empty selector names no hub.
bool IsNamed(const Hub& hub, const std::string& selector);

Failure NoHub();

/// The hub that the selector names; without one, the only hub that is attached, where hubs that
/// cannot be opened count, too. Throws Failure when there is none or more than one, and when it
/// cannot be opened.
Hub PickHub(Host& host, const std::optional<std::string>& selector);

/// The hubs that the selectors name, each one hub, or all that a filter ("vid=VID", "pid=PID")
/// matches; without selectors, the only hub. They may include hubs that cannot be opened. Throws
/// Failure when a selector matches no hub, or several without being a filter.
std::vector<Hub> PickHubs(Host& host, const std::vector<std::string>& selectors);

}  // namespace qzhid
