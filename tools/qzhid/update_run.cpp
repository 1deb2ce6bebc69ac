#include "qzhid/update_run.h"

#include <algorithm>
#include <iostream>

#include "qzhid/interrupt.h"
#include "qzhid/options.h"
#include "qzhid/system.h"

namespace qzhid {

namespace {

using State = UpdateJob::State;

// How another process finds the hub: instance numbers may mean nothing there.
std::string KeyOf(const Hub& hub, const std::vector<Hub>& attached) {
  const auto same = std::count_if(attached.begin(), attached.end(), [&hub](const Hub& other) {
    return other.Location() == hub.Location();
  });
  if (same == 0) throw NoPermission(hub.Name());
  if (same == 1 && (!hub.Location().empty() || attached.size() == 1)) return hub.Location();
  throw Failure(Exit::Failed, "the hub cannot be told from others by its location", hub.Name(),
                "unplug the other hubs and repeat the command");
}

Failure FromWorker(const UpdateJob& job, const nlohmann::json& error) {
  const std::string stopped = InterruptGuard::IsStopWanted() ? "stopped, and " : "";
  Failure failure(error.at("status").get<Exit>(), stopped + error.at("what").get<std::string>(),
                  job.hub.Name(), error.at("next"));
  failure.SetLog(error.value("log", std::vector<std::string>()));
  return failure;
}

Failure Died(const UpdateJob& job, const std::string& ending) {
  if (job.state == State::Writing) {
    return {Exit::HubLost,
            "the process that wrote the hub died (" + ending + "), and the hub's state is unknown",
            job.hub.Name(), kFindHub};
  }
  return {Exit::Failed, "the process for the hub died (" + ending + ") before anything was written",
          job.hub.Name(), "repeat the command"};
}

}  // namespace

UpdateRun::UpdateRun(Host& host, const UpdateOptions& options, const Image& image,
                     const std::vector<Hub>& hubs)
    : host_(host), options_(options), image_(image) {
  const std::vector<Hub> attached = ListHubs(host);
  for (const Hub& hub : hubs) {
    UpdateJob& job = jobs_.emplace_back(UpdateJob{.hub = hub, .progress = Progress(image.size)});
    try {
      job.key = KeyOf(hub, attached);
    } catch (const Failure& failure) {
      job.failure = failure;
      job.state = State::Failed;
    }
  }
}

std::size_t UpdateRun::Count(State state) const {
  return static_cast<std::size_t>(std::count_if(
      jobs_.begin(), jobs_.end(), [state](const UpdateJob& job) { return job.state == state; }));
}

void UpdateRun::Start(UpdateJob& job, std::size_t number) {
  if (!host_.Settings().log.empty() && !host_.Temporary().empty()) {
    job.log = (host_.Temporary() / ("hub" + std::to_string(number) + ".txt")).string();
  }
  std::vector<std::string> arguments = host_.Arguments(job.log);
  arguments.push_back(options_.isRecovery ? "recover" : "update");
  if (!job.key.empty()) arguments.push_back(job.key);
  arguments.push_back("--image=" + image_.path);
  arguments.push_back("--worker");
  if (options_.isForced) arguments.push_back("--force");
  if (options_.isReinstall) arguments.push_back("--reinstall");
  if (options_.staysInLoader) arguments.push_back("--stay-in-loader");
  job.worker.emplace(arguments, Process::Errors::Shared);
}

void UpdateRun::Check() {
  // This process has nothing to do with the hubs any more.
  host_.Release();
  for (std::size_t i = 0; i < jobs_.size(); ++i) {
    if (jobs_[i].state == State::Checking) Start(jobs_[i], i + 1);
  }
  while (Count(State::Checking) > 0) Listen();
}

// Hears what the workers say; false when there is none left.
bool UpdateRun::Listen() {
  std::vector<const Process*> workers;
  for (const UpdateJob& job : jobs_) {
    if (job.worker) workers.push_back(&*job.worker);
  }
  if (workers.empty()) return false;
  Process::AwaitOutput(workers);
  for (UpdateJob& job : jobs_) {
    if (!job.worker) continue;
    const bool goesOn = job.worker->Read(job.heard);
    for (std::size_t end = 0; (end = job.heard.find('\n')) != std::string::npos;) {
      Hear(job, job.heard.substr(0, end));
      job.heard.erase(0, end + 1);
    }
    if (!goesOn) End(job);
  }
  return true;
}

void UpdateRun::Hear(UpdateJob& job, const std::string& line) {
  const nlohmann::json said = nlohmann::json::parse(line, nullptr, false);
  if (!said.is_object()) return;
  if (said.contains("from")) job.from = job.runs = said["from"];
  if (said.contains("ready")) job.state = State::Ready;
  if (said.contains("percent") && job.progress.Take(said["percent"]) && !isLive_ &&
      !host_.Settings().isQuiet) {
    std::cerr << "hub " + job.hub.Name() + ": " + job.progress.Text() + '\n' << std::flush;
  }
  if (said.contains("percent") && job.progress.Text().starts_with("erasing")) job.runs = "?";
  if (said.contains("runs")) job.runs = said["runs"];
  if (said.contains("done")) job.state = State::Done;
  if (said.contains("error")) {
    job.failure = FromWorker(job, said["error"]);
    job.state = State::Failed;
  }
}

void UpdateRun::End(UpdateJob& job) {
  const std::string ending = job.worker->Ending();
  job.worker.reset();
  host_.TakeLog(job.log);
  if (job.state == State::Done || job.state == State::Failed) return;
  job.failure = Died(job, ending);
  job.state = State::Failed;
}

void UpdateRun::Write() {
  const system::TerminalSize terminal = system::DrawableTerminal();
  isLive_ =
      !host_.Settings().isQuiet && host_.IsColourful() && Count(State::Ready) < terminal.lines;
  const InterruptGuard guard;
  do {
    StartNext();
    Draw();
    if (InterruptGuard::TakeInterrupt()) SayInterrupted();
    if (InterruptGuard::IsStopWanted()) LeaveOthers();
  } while (Listen());
}

void UpdateRun::StartNext() {
  std::size_t active = Count(State::Writing);
  for (UpdateJob& job : jobs_) {
    if (active >= options_.jobs || InterruptGuard::IsStopWanted()) return;
    if (job.state != State::Ready) continue;
    job.state = State::Writing;
    job.worker->Write("go\n");
    ++active;
  }
}

void UpdateRun::LeaveOthers() {
  for (UpdateJob& job : jobs_) {
    if (job.state != State::Ready) continue;
    job.worker->CloseInput();
    job.failure = Failure(Exit::Failed, "stopped before the hub was touched: it runs " + job.from,
                          job.hub.Name(), "repeat the command");
    job.state = State::Failed;
  }
}

void UpdateRun::SayInterrupted() {
  const bool isOne = jobs_.size() == 1;
  const std::string it = isOne ? "the hub" : "the hubs being written";
  const std::string text =
      InterruptGuard::IsStopWanted()
          ? "stopping as soon as " + it + " can be left"
          : it + " must not be left now, the update goes on; a second Ctrl-C within two seconds " +
                (isOne ? "" : "starts no further hub and ") + "stops as soon as " +
                (isOne ? "the hub" : "the others") + " can be left";
  live_.Say("qzhid: " + text);
}

void UpdateRun::Draw() {
  if (!isLive_) return;
  const std::size_t columns = system::DrawableTerminal().columns;
  std::vector<std::string> lines;
  for (const UpdateJob& job : jobs_) {
    const std::string label = jobs_.size() == 1 ? "" : "hub " + std::to_string(job.hub.instance);
    const std::string wide = label.empty() ? "" : TableCell(label);
    if (job.state == State::Failed) {
      if (!label.empty()) lines.push_back((wide + "failed").substr(0, columns - 1));
    } else {
      lines.push_back(job.progress.Bar(wide, columns));
    }
  }
  live_.Draw(lines);
}

}  // namespace qzhid
