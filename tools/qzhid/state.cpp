#include "qzhid/state.h"

#include "qzhid/patience.h"

namespace qzhid {

std::string RecoverHub(const Hub& hub) {
  return "write its firmware with 'qzhid recover --hub " + hub.shownId + " --image FILE'";
}

HubState ReadState(Host& host, const Hub& hub) {
  // A hub that answers and has no version is in its loader. But it may have left between the two
  // answers, so that counts only when it is so again.
  constexpr int kLooks = 2;
  const Patience patience(host, "hub " + hub.Name() + " to answer");
  HubState state;
  for (int looks = 0; looks < kLooks && !state.version; ++looks) {
    if (host.Api().GetHubVIDPIDFromHidDevice(hub.instance, &state.vid, &state.pid) == 0) {
      throw Failure(Exit::HubLost, "the hub does not answer", hub.Name(),
                    "unplug it, plug it in again and repeat the command");
    }
    const OpenHub open(host, hub);
    std::uint16_t version = 0;
    if (host.Api().ReadDevVersion(open.Handle(), &version) != 0) state.version = version;
  }
  return state;
}

HubSummary SummariseUnread(const Hub& hub) { return {hub.hasNode ? "unknown" : "no node", {}}; }

HubSummary Summarise(Host& host, const Hub& hub) {
  if (!hub.hasNode) return SummariseUnread(hub);
  if (!hub.isOpenable) return {"no permission", {}};
  try {
    const HubState state = ReadState(host, hub);
    return {state.version ? "firmware" : "loader", state.version};
  } catch (const Failure&) {
    return {"silent", {}};
  }
}

}  // namespace qzhid
