#include "qzhid/update_check.h"

namespace qzhid {

namespace {

[[noreturn]] void Refuse(const Hub& hub, const std::string& why, const std::string& next) {
  throw Failure(Exit::Refused, why, hub.Name(), next);
}

// A loader may have a product id of its own, so only the vendor counts.
Verdict CheckLoader(const Hub& hub, const UpdateRules& rules) {
  if (rules.isRecovery || rules.takesLoader) return Verdict::Write;
  throw Failure(Exit::InLoader, "the hub is in its loader", hub.Name(), RecoverHub(hub));
}

}  // namespace

Verdict CheckHub(const Hub& hub, const HubState& state, const Image& image,
                 const UpdateRules& rules) {
  if (image.vid != state.vid) {
    Refuse(hub,
           "the image is for vendor " + IdText(image.vid) + ", the hub is of vendor " +
               IdText(state.vid),
           "use an image for this hub");
  }
  if (!state.version) return CheckLoader(hub, rules);
  if (image.pid != state.pid && !rules.isForced) {
    Refuse(hub,
           "the image is for product " + IdText(image.pid) + ", the hub is product " +
               IdText(state.pid),
           "use an image for this hub, or add --force to write it anyway");
  }
  if (image.version == *state.version && !rules.isForced) return Verdict::Current;
  if (rules.isRecovery) {
    Refuse(hub, "the hub runs its firmware " + state.Text(),
           "nothing needs to be recovered; 'qzhid update' writes another version");
  }
  if (image.version < *state.version && !rules.allowsOlder) {
    Refuse(hub,
           "the hub runs " + state.Text() + ", which is newer than the image's " +
               VersionText(image.version),
           "use a newer image, or add --allow-older to write it anyway");
  }
  return Verdict::Write;
}

}  // namespace qzhid
