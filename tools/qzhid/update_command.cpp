#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "qzhid/commands.h"
#include "qzhid/image.h"
#include "qzhid/interrupt.h"
#include "qzhid/options.h"
#include "qzhid/progress.h"
#include "qzhid/state.h"
#include "qzhid/system.h"

namespace qzhid {

namespace {

struct UpdateOptions {
  std::string hub;
  std::string image;
  bool isAgreed = false;
  bool isForced = false;
  bool isReinstall = false;
  bool staysInLoader = false;
};

using Check = void (*)(const Hub& hub, const HubState& state, const Image& image,
                       const UpdateOptions& options);

void RefuseForeign(const Hub& hub, const std::string& hubIds, const std::string& imageIds) {
  throw Failure(Exit::ImageRefused, "the image is for " + imageIds + ", the hub is " + hubIds,
                hub.Name(), "name this hub's image, or add --force to write it all the same");
}

void CheckUpdate(const Hub& hub, const HubState& state, const Image& image,
                 const UpdateOptions& options) {
  if (!state.version) {
    throw Failure(Exit::Failed, "the hub sits in its loader", hub.Name(),
                  "write its firmware with 'qzhid recover --image FILE'");
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

// What became of a hub that could not be updated.
[[noreturn]] void FailUpdate(Host& host, const Hub& hub) {
  const std::string failed =
      InterruptGuard::IsStopWanted() ? "stopped, and the update had failed" : "the update failed";
  const std::vector<Hub> hubs = ListHubs(host);
  const Hub* now = AtLocation(hubs, hub.Location());
  if (now == nullptr) {
    throw Failure(Exit::HubLost, failed + ", and the hub has left the bus", hub.Name(),
                  "unplug it, plug it in again, and run 'qzhid info' and 'qzhid recover'");
  }
  const HubState state = ReadState(host, *now);
  if (!state.version) {
    throw Failure(Exit::Failed, failed + ", and the hub sits in its loader", now->Name(),
                  "run 'qzhid recover --image FILE' on it");
  }
  throw Failure(Exit::Failed, failed + ", and the hub runs " + state.Text(), now->Name(),
                "repeat the command; --log FILE tells why it failed");
}

// What the hub runs behind a successful update.
std::string RunsNow(Host& host, const Hub& hub, const OpenHub& open, const Image& image,
                    bool staysInLoader) {
  std::uint16_t version = 0;
  const bool isRunning = host.Api().ReadDevVersion(open.Handle(), &version) != 0;
  if (!isRunning && staysInLoader) return "loader";
  if (!isRunning) {
    throw Failure(Exit::HubLost, "the image is written, but the hub does not run it", hub.Name(),
                  "unplug the hub, plug it in again and see 'qzhid info'");
  }
  if (version != image.version && !staysInLoader) {
    throw Failure(Exit::Failed, "the image is written, but the hub runs " + VersionText(version),
                  hub.Name(), "unplug the hub, plug it in again and see 'qzhid info'");
  }
  return VersionText(version);
}

ProgressStyle StyleFor(Host& host) {
  if (host.Settings().isQuiet) return ProgressStyle::None;
  return host.IsColourful() ? ProgressStyle::Bar : ProgressStyle::Lines;
}

void Write(Host& host, const Hub& hub, const OpenHub& open, const Image& image,
           bool staysInLoader) {
  const Progress progress(StyleFor(host), "hub " + hub.Name(), image.size);
  host.Api().DllPassPara(staysInLoader ? 1 : 0);
  if (host.Api().UpdateDev(open.Handle(), image.path.c_str(), Progress::Callback) == 0) {
    FailUpdate(host, hub);
  }
}

void Update(Host& host, const UpdateOptions& options, Check check) {
  system::OutliveReaders();
  const Image image = ReadImage(host, options.image);
  const Hub hub = PickHub(host, options.hub);
  const HubState before = ReadState(host, hub);
  check(hub, before, image, options);
  const std::string change =
      "hub " + hub.Name() + ": " + before.Text() + " -> " + VersionText(image.version);
  if (!options.isAgreed) Confirm(change + ", write it?", hub.Name());
  if (options.isAgreed && !host.Settings().isQuiet) std::cerr << change << std::endl;

  const InterruptGuard guard;
  const OpenHub open(host, hub);
  Write(host, hub, open, image, options.staysInLoader);
  const std::string runs = RunsNow(host, hub, open, image, options.staysInLoader);
  const std::string stopped =
      InterruptGuard::IsStopWanted() ? "stopped, and the update was complete: " : "";
  host.Report({{"hub", ToJson(hub)},
               {"image", ToJson(image)},
               {"from", before.Text()},
               {"to", VersionText(image.version)},
               {"runs", runs}},
              stopped + "hub " + hub.Name() + " runs " + runs + " now\n");
}

CLI::App* AddWriter(CLI::App& app, Host& host, const std::string& name, const std::string& meaning,
                    const std::shared_ptr<UpdateOptions>& options, Check check) {
  CLI::App* command = app.add_subcommand(name, meaning);
  AddHub(*command, "HUB", options->hub);
  command->add_option("--image", options->image, "the firmware image file")->required();
  command->add_flag("--yes", options->isAgreed, "do not ask");
  command->add_flag("--force", options->isForced, "write an image that is for another hub");
  command->callback([&host, options, check] { Update(host, *options, check); });
  return command;
}

}  // namespace

void AddUpdateCommand(CLI::App& app, Host& host) {
  const auto options = std::make_shared<UpdateOptions>();
  CLI::App* command =
      AddWriter(app, host, "update", "write a firmware image to a hub", options, CheckUpdate);
  command->add_flag("--reinstall", options->isReinstall, "write the version that the hub runs");
  command->add_flag("--stay-in-loader", options->staysInLoader, "do not start the new firmware");
  AddExamples(*command, {"qzhid update --image new.bin", "qzhid update 5 --image new.bin --yes",
                         "qzhid update 2E7C:0818 --image new.bin --reinstall"});
}

void AddRecoverCommand(CLI::App& app, Host& host) {
  CLI::App* command =
      AddWriter(app, host, "recover", "write a firmware image to a hub that sits in its loader",
                std::make_shared<UpdateOptions>(), CheckRecovery);
  AddExamples(*command, {"qzhid recover --image new.bin", "qzhid recover 5 --image new.bin --yes"});
}

}  // namespace qzhid
