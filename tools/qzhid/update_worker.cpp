#include "qzhid/update_worker.h"

#include <csignal>
#include <iostream>
#include <string>
#include <utility>

#include "qzhid/system.h"

namespace qzhid {

namespace {

void Tell(const nlohmann::ordered_json& object) {
  // Whoever does not read any more does not keep the hub from being written.
  std::cout << object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << std::endl;
  std::cout.clear();
}

void TellPercent(std::int32_t percent) { Tell({{"percent", percent}}); }

// What became of a hub that could not be updated.
Failure FailedUpdate(Host& host, const Hub& hub) {
  const std::string failed = "the update failed, and the hub ";
  const std::vector<Hub> hubs = ListHubs(host);
  const Hub* now = AtLocation(hubs, hub.Location());
  if (now == nullptr) {
    return {Exit::HubLost, failed + "has left the bus", hub.Name(), kFindHub};
  }
  const HubState state = ReadState(host, *now);
  Tell({{"runs", state.Text()}});
  if (!state.version) {
    return {Exit::Failed, failed + "sits in its loader", hub.Name(),
            "run 'qzhid recover --image FILE' on it"};
  }
  return {Exit::Failed, failed + "runs " + state.Text(), hub.Name(),
          "repeat the command; --log FILE tells why it failed"};
}

// What the hub runs behind a successful update.
void CheckResult(Host& host, const Hub& hub, const OpenHub& open, const Image& image,
                 bool staysInLoader) {
  constexpr const char* kSee = "unplug the hub, plug it in again and see 'qzhid info'";
  std::uint16_t version = 0;
  const bool isRunning = host.Api().ReadDevVersion(open.Handle(), &version) != 0;
  if (!isRunning && !staysInLoader) {
    throw Failure(Exit::HubLost, "the image is written, but the hub does not run it", hub.Name(),
                  kSee);
  }
  const std::string runs = isRunning ? VersionText(version) : "loader";
  Tell({{"runs", runs}});
  if (version != image.version && !staysInLoader) {
    throw Failure(Exit::Failed, "the image is written, but the hub runs " + runs, hub.Name(), kSee);
  }
}

void Write(Host& host, const UpdateOptions& options) {
  const Image image = ReadImage(host, options.image);
  const Hub hub = PickHub(host, options.hubs.empty() ? "" : options.hubs.front());
  const HubState before = ReadState(host, hub);
  Tell({{"from", before.Text()}});
  CheckHub(hub, before, image, options);
  Tell({{"ready", true}});
  std::string go;
  if (!std::getline(std::cin, go)) return;

  for (const int interrupt : system::kInterrupts)
    static_cast<void>(std::signal(interrupt, SIG_IGN));
  const OpenHub open(host, hub);
  host.Api().DllPassPara(options.staysInLoader ? 1 : 0);
  if (host.Api().UpdateDev(open.Handle(), image.path.c_str(), TellPercent) == 0) {
    // Asking the hub how it is may log failures of its own.
    std::vector<std::string> log = host.LastFailures();
    Failure failure = FailedUpdate(host, hub);
    failure.SetLog(std::move(log));
    throw Failure(failure);
  }
  CheckResult(host, hub, open, image, options.staysInLoader);
  Tell({{"done", true}});
}

}  // namespace

void WriteAsWorker(Host& host, const UpdateOptions& options) {
  system::OutliveReaders();
  try {
    Write(host, options);
  } catch (const Failure& failure) {
    nlohmann::ordered_json error = ToJson(failure);
    if (host.Settings().isVerbose) {
      error["log"] = failure.Log().empty() ? host.LastFailures() : failure.Log();
    }
    Tell({{"error", error}});
  }
}

}  // namespace qzhid
