#include "qzhid/update_check.h"

namespace qzhid {

namespace {

[[noreturn]] void RejectForeign(const Hub& hub, const std::string& hubIds,
                                const std::string& imageIds) {
  throw Failure(Exit::ImageRefused, "the image is for " + imageIds + ", the hub is " + hubIds,
                hub.Name(), "name this hub's image, or add --force to write it anyway");
}

void CheckUpdate(const Hub& hub, const HubState& state, const Image& image, const WorkerJob& job) {
  if (!state.version) {
    throw Failure(Exit::Failed, "the hub is in its loader", hub.Name(), kRecoverHub);
  }
  if (!job.isForced && (image.vid != state.vid || image.pid != state.pid)) {
    RejectForeign(hub, IdText(state.vid) + ":" + IdText(state.pid),
                  IdText(image.vid) + ":" + IdText(image.pid));
  }
  if (!job.isReinstall && image.version == *state.version) {
    throw Failure(Exit::ImageRefused, "the hub already runs " + state.Text(), hub.Name(),
                  "nothing needs to be done, or add --reinstall to write it again");
  }
}

// The loader may have a product id of its own, so only the vendor counts.
void CheckRecovery(const Hub& hub, const HubState& state, const Image& image,
                   const WorkerJob& job) {
  if (state.version) {
    throw Failure(Exit::Failed, "the hub runs its firmware " + state.Text(), hub.Name(),
                  "nothing needs to be recovered; 'qzhid update' writes another version");
  }
  if (!job.isForced && image.vid != state.vid) {
    RejectForeign(hub, "of vendor " + IdText(state.vid), "vendor " + IdText(image.vid));
  }
}

}  // namespace

void CheckHub(const Hub& hub, const HubState& state, const Image& image, const WorkerJob& job) {
  (job.isRecovery ? CheckRecovery : CheckUpdate)(hub, state, image, job);
}

}  // namespace qzhid
