#include "discovery/node_matchers.h"

#include "discovery/topo_match.h"
#include "discovery/vid_pid_match.h"

namespace qzhid {

Matchers NodeMatchers() {
  static constexpr CVidPidMatch byIds;
  static constexpr CTopoMatch byPlace;
  return {byIds, byPlace};
}

}  // namespace qzhid
