// The devices of a scenario as they are offered to other computers.
#pragma once

#include <string>
#include <vector>

#include "qzhub/usbip_wire.h"
#include "virtualhub/scenario/scenario.h"

namespace qzhub {

/// One device: "1-1" is the first of the scenario, and so on. It stays in its place wherever in the
/// scenario's USB tree it is, and whether it is on the bus or not.
struct Export {
  std::string name;
  ExportPlace place;
  std::string address{};  ///< where it has one of its own

  /// For events: the name, and how clients find it.
  std::string Label() const {
    return name + (address.empty() ? " busid=" + place.Busid() : " address=" + address);
  }
};

std::vector<Export> ExportsOf(const virtualhub::Scenario& scenario);

}  // namespace qzhub
