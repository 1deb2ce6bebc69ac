// The process that writes one hub.
#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <string>
#include <utility>

#include "qzhid/commands.h"
#include "qzhid/hub_writer.h"
#include "qzhid/image.h"
#include "qzhid/state.h"
#include "qzhid/system.h"
#include "qzhid/update_check.h"
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

void Work(Host& host, const WorkerJob& job) {
  const Image image = ReadImage(job.image);
  const Hub hub = HubAt(host, job.location);
  const HubState before = ReadState(host, hub);
  // The hub may be another one than when the user was asked.
  if (CheckHub(hub, before, image, job.rules) == Verdict::Write) {
    WriteHub(host, job, hub, image.version, SendReport, IsToldToRetry);
  }
  SendReport(ReportDone{});
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
    ReportFailed report{failure.Status(), failure.what(), failure.Next(), {}};
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
