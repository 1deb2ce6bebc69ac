#include "qzhid/update_check.h"

namespace qzhid {

namespace {

void RefuseForeign(const Hub& hub, const std::string& hubIds, const std::string& imageIds) {
  throw Failure(Exit::ImageRefused, "the image is for " + imageIds + ", the hub is " + hubIds,
                hub.Name(), "name this hub's image, or add --force to write it all the same");
}

void CheckUpdate(const Hub& hub, const HubState& state, const Image& image,
                 const UpdateOptions& options) {
  if (!state.version) {
    throw Failure(Exit::Failed, "the hub sits in its loader", hub.Name(), kRecoverHub);
  }
  if (!options.isForced && (image.vid != state.vid || image.pid != state.pid)) {
    RefuseForeign(hub, IdText(state.vid) + ":" + IdText(state.pid),
                  IdText(image.vid) + ":" + IdText(image.pid));
  }
  if (!options.isReinstall && image.version == *state.version) {
    throw Failure(Exit::ImageRefused, "the hub already runs " + state.Text(), hub.Name(),
                  "nothing needs to be done, or add --reinstall to write it again");
  }
}

// The loader may have a product id of its own, so only the vendor tells.
void CheckRecovery(const Hub& hub, const HubState& state, const Image& image,
                   const UpdateOptions& options) {
  if (state.version) {
    throw Failure(Exit::Failed, "the hub runs its firmware " + state.Text(), hub.Name(),
                  "nothing needs to be recovered; 'qzhid update' writes another version");
  }
  if (!options.isForced && image.vid != state.vid) {
    RefuseForeign(hub, "of vendor " + IdText(state.vid), "vendor " + IdText(image.vid));
  }
}

}  // namespace

void CheckHub(const Hub& hub, const HubState& state, const Image& image,
              const UpdateOptions& options) {
  (options.isRecovery ? CheckRecovery : CheckUpdate)(hub, state, image, options);
}

}  // namespace qzhid
