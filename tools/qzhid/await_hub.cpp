#include "qzhid/await_hub.h"

#include <algorithm>

namespace qzhid {

namespace {

constexpr std::chrono::milliseconds kBetweenLists{100};
constexpr std::chrono::seconds kShortAbsence{1};

// The hub, and if there is none that can be opened, one that cannot.
std::optional<Hub> FindHub(Host& host, const std::string& location) {
  std::vector<Hub> hubs = ListHubs(host);
  std::erase_if(hubs, [&location](const Hub& hub) {
    return !location.empty() && hub.Location() != location;
  });
  if (std::any_of(hubs.begin(), hubs.end(), [](const Hub& hub) { return hub.isOpenable; })) {
    std::erase_if(hubs, [](const Hub& hub) { return !hub.isOpenable; });
  }
  if (hubs.size() != 1) return std::nullopt;
  return hubs.front();
}

}  // namespace

AwaitedHub AwaitHub(Host& host, Clock& clock, const std::string& location,
                    std::chrono::seconds patience, const std::function<void()>& isAway) {
  const Clock::Time start = clock.Now();
  AwaitedHub awaited{FindHub(host, location)};
  bool isThere = awaited.hub.has_value(), isSaid = false;
  while (!(awaited.hub && awaited.hub->isOpenable) && clock.Now() - start < patience) {
    if (!isSaid && clock.Now() - start >= kShortAbsence) {
      isAway();
      isSaid = true;
    }
    clock.Sleep(kBetweenLists);
    awaited.hub = FindHub(host, location);
    if (isThere) continue;
    awaited.away = std::chrono::duration_cast<std::chrono::milliseconds>(clock.Now() - start);
    isThere = awaited.hub.has_value();
  }
  return awaited;
}

}  // namespace qzhid
