// What an update or a recovery is to do, and whether it may be done to a hub.
#pragma once

#include <string>
#include <vector>

#include "qzhid/image.h"
#include "qzhid/state.h"

namespace qzhid {

struct UpdateOptions {
  std::vector<std::string> hubs;
  std::string image;
  std::size_t jobs = 4;  ///< hubs that are written at a time
  bool isAll = false;
  bool isAgreed = false;
  bool isForced = false;
  bool isReinstall = false;
  bool staysInLoader = false;
  bool isRecovery = false;
  bool isWorker = false;
};

/// Throws Failure when the hub is not to be written.
void CheckHub(const Hub& hub, const HubState& state, const Image& image,
              const UpdateOptions& options);

}  // namespace qzhid
