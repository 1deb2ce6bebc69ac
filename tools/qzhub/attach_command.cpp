#include "qzhub/attach_command.h"

#include <CLI/CLI.hpp>
#include <atomic>
#include <list>
#include <memory>
#include <stdexcept>
#include <thread>

#include "qzhub/attachment.h"

namespace qzhub {

namespace {

// Each attachment in a thread of its own. One that fails ends them all.
class Attachments {
 public:
  Attachments(const StopEvent& stop, EventLog& log) : stop_(stop), log_(log) {}
  ~Attachments() {
    stop_.Request();
    Join();
  }
  Attachments(const Attachments&) = delete;
  Attachments& operator=(const Attachments&) = delete;

  void Start(std::unique_ptr<Attachment> attachment) {
    attachment->AttachIfPresent();
    threads_.emplace_back([this, served = std::move(attachment)] { Serve(*served); });
  }

  /// Returns when the end was requested and all are detached.
  void Join() {
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
  }
  bool failed() const { return failed_; }

 private:
  void Serve(Attachment& attachment) {
    try {
      attachment.Serve();
    } catch (const std::exception& error) {
      log_.Remark(error.what());
      failed_ = true;
      stop_.Request();
    }
  }

  const StopEvent& stop_;
  EventLog& log_;
  std::list<std::thread> threads_;
  std::atomic<bool> failed_{false};
};

void Attach(const std::string& scenarioFile) {
  const virtualhub::Scenario scenario = LoadScenario(scenarioFile);
  const Vhci vhci;
  virtualhub::World world(scenario);
  const StopEvent stop;
  stop.RequestOnSignals();
  EventLog log;
  Attachments attachments(stop, log);
  for (const Export& exported : ExportsOf(scenario)) {
    attachments.Start(std::make_unique<Attachment>(world, exported, vhci, stop, log));
  }
  attachments.Join();
  if (attachments.failed()) throw std::runtime_error("attaching has ended");
}

}  // namespace

void AddAttachCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand(
      "attach", "plug virtual devices into this machine's kernel (as root; needs vhci_hcd)");
  const auto scenario = std::make_shared<std::string>();
  command->add_option("--scenario", *scenario,
                      "JSON file that says what is attached, default: one hub and one keyboard");
  command->callback([scenario] { Attach(*scenario); });
}

}  // namespace qzhub
