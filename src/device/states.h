// The five states of a device and the table that holds them.
#pragma once

#include <map>
#include <memory>

#include "device/state.h"

namespace qzhid {

inline constexpr int kStateOffline = 0;
inline constexpr int kStateUnknown = 1;
inline constexpr int kStateRom = 2;
inline constexpr int kStateFlash = 3;
inline constexpr int kStateWait = 4;

using StateTable = std::map<int, std::unique_ptr<CState>>;

/// Makes the five states of a device under their ids.
StateTable MakeStates(CKmoHubPDDev& dev);

}  // namespace qzhid
