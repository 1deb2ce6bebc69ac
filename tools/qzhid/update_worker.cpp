// The process that writes one hub.
#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <string>
#include <utility>

#include "qzhid/commands.h"
#include "qzhid/system.h"
#include "qzhid/update_check.h"
#include "qzhid/update_messages.h"

namespace qzhid {

namespace {

void Send(const WorkerReport& report) {
  // The hub is written even when nobody reads any more.
  std::cout << ToLine(report) << std::flush;
  std::cout.clear();
}

void SendProgress(std::int32_t percent) { Send(ReportProgress{percent}); }

// What became of a hub that could not be updated.
Failure FailedUpdate(Host& host, const Hub& hub) {
  const std::string failed = "the update failed, and the hub ";
  const std::vector<Hub> hubs = ListHubs(host);
  const Hub* now = AtLocation(hubs, hub.Location());
  if (now == nullptr) {
    return {Exit::HubLost, failed + "has left the bus", hub.Name(), kFindHub};
  }
  const HubState state = ReadState(host, *now);
  Send(ReportAfter{state.version});
  if (!state.version) {
    return {Exit::Failed, failed + "is in its loader", hub.Name(),
            "run 'qzhid recover --image FILE' on it"};
  }
  return {Exit::Failed, failed + "runs " + state.Text(), hub.Name(),
          "repeat the command; with --log FILE the log says why it failed"};
}

// What the hub runs after a successful update.
void CheckResult(Host& host, const Hub& hub, const OpenHub& open, const Image& image,
                 bool staysInLoader) {
  constexpr const char* kSee = "unplug the hub, plug it in again and see 'qzhid info'";
  std::uint16_t version = 0;
  const bool isRunning = host.Api().ReadDevVersion(open.Handle(), &version) != 0;
  if (!isRunning && !staysInLoader) {
    throw Failure(Exit::HubLost, "the image is written, but the hub does not run it", hub.Name(),
                  kSee);
  }
  Send(ReportAfter{isRunning ? RunningVersion(version) : std::nullopt});
  if (version != image.version && !staysInLoader) {
    throw Failure(Exit::Failed, "the image is written, but the hub runs " + VersionText(version),
                  hub.Name(), kSee);
  }
}

void WriteHub(Host& host, const WorkerJob& job, const Hub& hub, const Image& image) {
  const OpenHub open(host, hub);
  host.Api().DllPassPara(job.staysInLoader ? 1 : 0);
  if (host.Api().UpdateDev(open.Handle(), image.path.c_str(), SendProgress) == 0) {
    // Asking the hub for its state may log failures of its own.
    std::vector<std::string> log = host.LastLogLines();
    Failure failure = FailedUpdate(host, hub);
    failure.SetLog(std::move(log));
    throw Failure(failure);
  }
  CheckResult(host, hub, open, image, job.staysInLoader);
}

void Work(Host& host, const WorkerJob& job) {
  const Image image = ReadImage(host, job.image);
  const Hub hub = PickHub(host, job.location);
  const HubState before = ReadState(host, hub);
  Send(ReportBefore{before.version});
  CheckHub(hub, before, image, job);
  Send(ReportReady{});
  std::string line;
  if (!std::getline(std::cin, line) || !IsWriteLine(line)) return;
  for (const int interrupt : system::kInterrupts) {
    static_cast<void>(std::signal(interrupt, SIG_IGN));
  }
  WriteHub(host, job, hub, image);
  Send(ReportDone{});
}

WorkerJob TakeJob() {
  std::string line;
  std::getline(std::cin, line);
  try {
    return ReadJob(line);
  } catch (const MessageError& error) {
    throw Failure(Exit::WrongUse,
                  std::string("standard input is not a job for a worker: ") + error.what(), "",
                  "use 'qzhid update', which starts its workers itself");
  }
}

void RunWorker(Host& host) {
  const WorkerJob job = TakeJob();
  system::OutliveReaders();
  Options& settings = host.Settings();
  settings.chosenLibrary = job.library;
  settings.isVirtual = job.isVirtual;
  settings.isVerbose = job.isVerbose;
  settings.log = job.log;
  settings.logLevel = job.logLevel;
  try {
    Work(host, job);
  } catch (const Failure& failure) {
    ReportFailed report{failure.Status(), failure.what(), failure.Next(), {}};
    if (job.isVerbose) report.log = failure.Log().empty() ? host.LastLogLines() : failure.Log();
    Send(report);
  }
}

}  // namespace

void AddWorkerCommand(CLI::App& app, Host& host) {
  CLI::App* command = app.add_subcommand("worker", "write one hub, for another process");
  command->group("");  // hidden: the program starts it itself
  command->callback([&host] { RunWorker(host); });
}

}  // namespace qzhid
