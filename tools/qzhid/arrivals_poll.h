#pragma once

#include <chrono>
#include <utility>

#include "qzhid/arrivals.h"

namespace qzhid {

/// Looks from time to time for devices that have come or gone, whatever the system announces: a
/// program in a container may hear nothing. Virtual hubs may have come or gone each time.
template <class Names>
class ArrivalsPoll {
 public:
  ArrivalsPoll(bool isVirtual, Names (*read)())
      : isVirtual_(isVirtual), read_(read), names_(isVirtual ? Names() : read()) {}

  /// Whether there is a change; `hasEvents` says that the system announces changes as well, and
  /// `isAnnounced` that it has announced one, which is not found a second time.
  bool HasChanged(bool hasEvents, bool isAnnounced) {
    constexpr std::chrono::seconds kWithEvents{5}, kAlone{1};
    const std::chrono::milliseconds every =
        isVirtual_ ? kVirtualChange : std::chrono::milliseconds(hasEvents ? kWithEvents : kAlone);
    const auto now = std::chrono::steady_clock::now();
    if (!isAnnounced && now - polledAt_ < every) return false;
    polledAt_ = now;
    if (isVirtual_) return true;
    Names seen = read_();
    const bool hasChanged = isAnnounced || seen != names_;
    names_ = std::move(seen);
    return hasChanged;
  }

 private:
  bool isVirtual_;
  Names (*read_)();
  Names names_;
  std::chrono::steady_clock::time_point polledAt_ = std::chrono::steady_clock::now();
};

}  // namespace qzhid
