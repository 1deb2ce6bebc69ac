// The process that writes one hub.
#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <optional>
#include <string>
#include <utility>

#include "qzhid/commands.h"
#include "qzhid/hub_writer.h"
#include "qzhid/image.h"
#include "qzhid/port_lock.h"
#include "qzhid/system.h"
#include "qzhid/update_messages.h"

namespace qzhid {

namespace {

void SendReport(const WorkerReport& report) {
  // The hub is written even when nobody reads any more.
  std::cout << ToLine(report) << std::flush;
  std::cout.clear();
}

bool IsToldToRetry() {
  std::string line;
  return std::getline(std::cin, line) && IsRetryLine(line);
}

// One process at a time; a station waits until it is the one, because a hub that another process
// still writes is one of its own, which was written before the station was started again.
void AwaitTurn(Host& host, const WorkerJob& job, std::optional<PortLock>& lock) {
  constexpr std::chrono::milliseconds kBetweenTurns{250};
  const std::string name = LockName(host, job.location);
  for (bool isFirst = true; !lock.emplace(name).IsHeld(); isFirst = false) {
    if (!job.isForStation) throw IsBeingWritten(job.location);
    if (isFirst) SendReport(ReportWaiting{});
    Clock().Sleep(kBetweenTurns);
  }
}

void Work(Host& host, const WorkerJob& job) {
  const Image image = ReadImage(job.image);
  std::optional<PortLock> turn;
  AwaitTurn(host, job, turn);
  Clock clock;
  WriteHub(host, job, image, clock, SendReport, IsToldToRetry);
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
  for (const int interrupt : system::kInterrupts) {
    static_cast<void>(std::signal(interrupt, SIG_IGN));
  }
  Options& settings = host.Settings();
  settings.chosenLibrary = job.library;
  settings.isVirtual = job.isVirtual;
  settings.isQuiet = true;  // what there is to say goes to the other process
  settings.isVerbose = job.isVerbose;
  settings.log = job.log;
  settings.logLevel = job.logLevel;
  try {
    Work(host, job);
  } catch (const Failure& failure) {
    ReportFailed report{failure.Status(),
                        failure.what(),
                        failure.Next(),
                        {},
                        dynamic_cast<const HubReplaced*>(&failure) != nullptr};
    if (job.isVerbose) report.log = failure.Log().empty() ? host.LastLogLines() : failure.Log();
    SendReport(report);
  }
}

}  // namespace

void AddWorkerCommand(CLI::App& app, Host& host) {
  CLI::App* command = app.add_subcommand("worker", "write one hub, for another process");
  command->group("");  // hidden: the program starts it itself
  command->callback([&host] { RunWorker(host); });
}

}  // namespace qzhid
