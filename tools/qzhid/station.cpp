#include "qzhid/station.h"

#include <algorithm>
#include <utility>

#include "qzhid/state.h"
#include "qzhid/tile_text.h"

namespace qzhid {

namespace {

using Stage = Bay::Stage;
using std::chrono::milliseconds;

// After an arrival the system may still give permission, or have more to come.
constexpr milliseconds kSettling{3000};
constexpr milliseconds kBetweenLooks{250};
constexpr milliseconds kDiskAgain{2000};
constexpr milliseconds kListAgain{2000};
constexpr milliseconds kTurn{100};    // while hubs are written
constexpr milliseconds kRedraw{250};  // while something moves
constexpr milliseconds kLongestRest{1000};
constexpr std::size_t kLongestLabel = 200;

std::string Clean(const std::string& scanned) {
  std::string label;
  for (const char c : scanned)
    label += static_cast<unsigned char>(c) < ' ' || c == '\x7F' ? ' ' : c;
  const std::size_t start = label.find_first_not_of(' ');
  if (start == std::string::npos) return "";
  return label.substr(start, label.find_last_not_of(' ') - start + 1);
}

// Why a hub cannot be written at all.
std::optional<Failure> Obstacle(const Hub& hub) {
  if (!hub.isOpenable) return NotOpenable(hub);
  if (!hub.locations.empty()) return std::nullopt;
  return Failure(Exit::Refused, "the hub has no location, by which it could be found after a reset",
                 hub.Name(), "plug it into another port");
}

std::string Place(const Hub& hub) { return hub.locations.empty() ? hub.shownId : hub.Location(); }

}  // namespace

Station::Station(StationWorld& world, const StationPlan& plan) : world_(world), plan_(plan) {
  for (const StationPlan::Port& port : plan.bays) {
    bays_.push_back(std::make_unique<Bay>(
        Bay{.tile = {.name = port.name, .portId = port.port}, .port = port.port}));
  }
  view_.image = plan.record.image;
  view_.imageVersion = VersionText(plan.imageVersion);
  Look();
}

std::size_t Station::Count(Stage stage) const {
  return static_cast<std::size_t>(std::count_if(
      bays_.begin(), bays_.end(), [stage](const auto& bay) { return bay->stage == stage; }));
}

void Station::LookAt(Clock::Time time) {
  if (!lookAt_ || time < *lookAt_) lookAt_ = time;
}

// The bay of a hub; null when it is in none. A bay belongs to the place of its first hub: another
// host controller can have a port with the same id.
Bay* Station::Find(const Hub& hub) {
  const std::string place = Place(hub);
  Bay* found = nullptr;
  for (const auto& bay : bays_) {
    if (bay->location == place) return bay.get();
    const bool isItsPort = hub.id.Is(bay->port) || IsLocation(hub.Location(), bay->port);
    if (!bay->location.empty() || !isItsPort) continue;
    if (found == nullptr) {
      found = bay.get();
    } else {
      world_.Say(TitleOf(bay->tile) + " has the same port as " + TitleOf(found->tile) +
                 ", which gets its hubs");
    }
  }
  if (found != nullptr) {
    found->location = place;
    return found;
  }
  if (plan_.bays.empty()) {
    const std::string name = hub.userName.empty() ? hub.shownId : hub.userName;
    bays_.push_back(std::make_unique<Bay>(
        Bay{.tile = {.name = name, .portId = hub.shownId}, .location = place}));
    return bays_.back().get();
  }
  if (std::find(strangers_.begin(), strangers_.end(), place) == strangers_.end()) {
    strangers_.push_back(place);
    world_.Say("hub " + hub.Name() + ": its port belongs to no bay, so it is left alone");
  }
  return nullptr;
}

// Nothing while they cannot be listed; then it is tried again soon, since an arrival is announced
// only once.
std::optional<std::vector<Hub>> Station::List() {
  try {
    auto hubs = world_.Hubs();
    isListed_ = true;
    listTrouble_.clear();
    return hubs;
  } catch (const Failure& failure) {
    if (!isListed_) throw;
    if (listTrouble_ != failure.what()) {
      world_.Say(std::string("the hubs cannot be listed: ") + failure.what());
    }
    listTrouble_ = failure.what();
    LookAt(world_.Now() + kListAgain);
    return std::nullopt;
  }
}

void Station::Look() {
  lookAt_.reset();
  const auto hubs = List();
  if (!hubs) return;
  std::vector<std::pair<Bay*, const Hub*>> seen;
  for (const Hub& hub : *hubs) {
    if (Bay* const bay = Find(hub)) seen.emplace_back(bay, &hub);
  }
  for (const auto& bay : bays_) {
    const auto found = std::find_if(seen.begin(), seen.end(),
                                    [&](const auto& pair) { return pair.first == bay.get(); });
    See(*bay, found == seen.end() ? nullptr : found->second);
  }
}

void Station::See(Bay& bay, const Hub* hub) {
  const Clock::Time now = world_.Now();
  if (hub != nullptr) {
    // A hub that was lost and is back was plugged in again, just before this was noticed.
    const bool wasUnplugged = bay.awaySince && now - *bay.awaySince >= kUnplugged;
    if (bay.stage == Stage::Done && bay.WasLost() && wasUnplugged) Leave(bay);
    bay.awaySince.reset();
    if (bay.stage == Stage::Free) return Arrive(bay, *hub);
    if (bay.stage != Stage::Arrived) return;
    bay.hub = *hub;
    if (!hub->isOpenable && now - bay.since < kSettling) LookAt(now + kBetweenLooks);
    return;
  }
  if (bay.stage == Stage::Free) return;
  if (!bay.awaySince) bay.awaySince = now;
  if (bay.stage != Stage::Arrived && bay.stage != Stage::Done) return;
  if (now - *bay.awaySince >= kUnplugged) return Leave(bay);
  LookAt(*bay.awaySince + kUnplugged);
}

void Station::Arrive(Bay& bay, const Hub& hub) {
  const Clock::Time now = world_.Now();
  bay.stage = Stage::Arrived;
  bay.hub = hub;
  bay.since = now;
  bay.arrival = ++arrivals_;
  bay.tile = {.name = bay.tile.name, .portId = hub.shownId, .state = BayState::Working};
  bay.tile.activity = "checking";
  if (plan_.asksLabel) bay.tile.label = std::exchange(label_, "");
  if (plan_.asksLabel && bay.tile.label.empty()) bay.tile.state = BayState::Label;
  if (!hub.isOpenable) LookAt(now + kBetweenLooks);
  isChanged_ = true;
}

// What became of a hub that was lost stays to be seen: it may have been away for long.
void Station::Leave(Bay& bay) {
  const bool wasLost = bay.WasLost();
  bay.stage = Stage::Free;
  bay.awaySince.reset();
  bay.hub.reset();
  bay.job.reset();
  if (!wasLost) bay.tile = {.name = bay.tile.name, .portId = bay.tile.portId};
  isChanged_ = true;
}

void Station::TakeLabel(const std::string& scanned) {
  const std::string label = Clean(scanned);
  if (label.empty() || !plan_.asksLabel) return;
  if (label.size() > kLongestLabel) {
    return world_.Say("a label of " + std::to_string(label.size()) + " letters is not used");
  }
  Bay* first = nullptr;
  for (const auto& bay : bays_) {
    // Readers sometimes read a label twice. A unit that has just left may come to another bay.
    const bool isThere =
        bay->stage != Stage::Free && (bay->stage != Stage::Done || !bay->awaySince);
    if (isThere && bay->tile.label == label) {
      return world_.Say("label " + label + " was scanned again; it is that of " +
                        TitleOf(bay->tile));
    }
    const bool asks = bay->stage == Stage::Arrived && bay->tile.label.empty();
    if (asks && (first == nullptr || bay->arrival < first->arrival)) first = bay.get();
  }
  isChanged_ = true;
  if (first != nullptr) {
    first->tile.label = label;
    first->tile.state = BayState::Working;
  } else if (label != label_) {
    world_.Say("label " + label + " belongs to the next hub" +
               (label_.empty() ? "" : ", and label " + label_ + " to none"));
    label_ = label;
  }
}

void Station::EndLabels() {
  if (!hasLabels_) return;
  hasLabels_ = false;
  if (plan_.asksLabel && label_.empty()) Stop();
}

void Station::Stop() {
  isStopping_ = isChanged_ = view_.isEnding = true;
  view_.stopped = "the station ends";
}

void Station::Step() {
  if (lookAt_ && world_.Now() >= *lookAt_) Look();
  for (const auto& bay : bays_) {
    if (bay->stage == Stage::Working) Listen(*bay);
  }
  if (Count(Stage::Recording) > 0) ShowRecorded();
  StartNext();
  const Clock::Time now = world_.Now();
  // Also while nothing moves: a page that is not written again counts as out of date.
  const milliseconds pause = Count(Stage::Working) > 0 ? kRedraw : kLongestRest;
  if (!isChanged_ && now - shownAt_ < pause) return;
  isChanged_ = false;
  shownAt_ = now;
  UpdateView();
  world_.Show(view_);
}

void Station::StartNext() {
  std::vector<Bay*> waiting;
  for (const auto& bay : bays_) {
    if (bay->stage == Stage::Arrived && MayStart(*bay)) waiting.push_back(bay.get());
  }
  std::sort(waiting.begin(), waiting.end(),
            [](const Bay* one, const Bay* other) { return one->arrival < other->arrival; });
  for (Bay* const bay : waiting) {
    if (isStopping_ || (plan_.most > 0 && started_ >= plan_.most) || !HasRoom()) return;
    Start(*bay);
  }
}

bool Station::MayStart(Bay& bay) {
  if (bay.awaySince || (plan_.asksLabel && bay.tile.label.empty())) return false;
  return bay.hub->isOpenable || world_.Now() - bay.since >= kSettling;
}

// Whether this unit's record can be written, and those of the units that are under way.
bool Station::HasRoom() {
  const Clock::Time now = world_.Now();
  if (roomAt_ && now < *roomAt_) return false;
  if (Count(Stage::Recording) > 0) return false;
  try {
    world_.CheckRoom(Count(Stage::Working) + 1);
    if (!view_.stopped.empty()) isChanged_ = true;
    view_.stopped.clear();
    roomAt_.reset();
    return true;
  } catch (const Failure& failure) {
    isChanged_ = isChanged_ || view_.stopped != failure.what();
    view_.stopped = failure.what();
    roomAt_ = now + kDiskAgain;
    return false;
  }
}

void Station::Start(Bay& bay) {
  ++started_;
  bay.stage = Stage::Working;
  bay.since = world_.Now();
  bay.started = world_.Date();
  if (!firstStart_) firstStart_ = bay.since;
  bay.tile.state = BayState::Working;
  bay.job.emplace(UpdateJob{.hub = *bay.hub, .progress = Progress(plan_.imageSize)});
  isChanged_ = true;
  if (!hasLabels_ && label_.empty() && plan_.asksLabel) Stop();
  if (const auto obstacle = Obstacle(*bay.hub)) {
    bay.job->Finish(*obstacle);
    return Record(bay);
  }
  try {
    bay.job->worker = world_.Start(*bay.hub);
    bay.job->state = UpdateJob::State::Writing;
  } catch (const Failure& failure) {
    bay.job->Finish(failure);
    bay.job->outcome = Outcome::NotStarted;
    Record(bay);
  }
}

void Station::Listen(Bay& bay) {
  const bool goesOn = bay.job->worker->Poll([&](const WorkerReport& report) { Take(bay, report); });
  if (goesOn) return;
  bay.job->worker.reset();
  Record(bay);
}

void Station::Take(Bay& bay, const WorkerReport& report) {
  const int retries = bay.job->retries;
  bay.job->Take(report, world_.IsStopWanted());
  if (bay.job->retries > retries) {
    world_.Say(TitleOf(bay.tile) + ": " + bay.job->trouble + "; trying again");
  }
  isChanged_ = true;
}

void Station::Record(Bay& bay) {
  UnitRecord record = plan_.record;
  record.end = world_.Date();
  bay.FillRecord(record, world_.Now());
  bay.stage = Stage::Recording;
  roomAt_.reset();
  world_.Keep(record);
  ShowRecorded();
}

// Nothing is shown of a unit before its record is on the disk.
void Station::ShowRecorded() {
  const Clock::Time now = world_.Now();
  if (roomAt_ && now < *roomAt_) return;
  try {
    world_.WriteKept();
  } catch (const Failure& failure) {
    view_.stopped = failure.what();
    roomAt_ = now + kDiskAgain;
    isChanged_ = true;
    return;
  }
  roomAt_.reset();
  if (!isStopping_) view_.stopped.clear();
  for (const auto& bay : bays_) {
    if (bay->stage == Stage::Recording) ShowOutcome(*bay);
  }
}

void Station::ShowOutcome(Bay& bay) {
  const UpdateJob& job = *bay.job;
  bay.stage = Stage::Done;
  // An absence of a hub that is there again was the worker's business.
  if (!bay.WasLost()) bay.awaySince.reset();
  bay.ShowOutcome();
  ++(bay.IsPassed() ? view_.passed : view_.failed);
  const double hours =
      std::chrono::duration<double>(world_.Now() - *firstStart_) / std::chrono::hours(1);
  if (hours > 0) view_.unitsPerHour = static_cast<double>(view_.passed + view_.failed) / hours;
  isChanged_ = true;
  if (job.failure) {
    for (const std::string& line : job.failure->Log()) world_.Say("  log: " + line);
  }
  if (job.isReplaced) {
    world_.Say(TitleOf(bay.tile) + ": " + bay.tile.reason);
    Leave(bay);
  }
  LookAt(world_.Now());
}

void Station::UpdateView() {
  const Clock::Time now = world_.Now();
  view_.bays.clear();
  for (const auto& bay : bays_) {
    if (bay->stage == Stage::Working || bay->stage == Stage::Recording) bay->ShowProgress(now);
    if (bay->stage == Stage::Arrived) {
      bay->tile.activity = view_.stopped.empty() ? "checking" : "waiting until the line runs";
    }
    view_.bays.push_back(bay->tile);
  }
}

milliseconds Station::Rest() {
  if (Count(Stage::Working) > 0) return kTurn;
  const Clock::Time now = world_.Now();
  Clock::Time end = now + kLongestRest;
  if (lookAt_) end = std::min(end, *lookAt_);
  return std::max(milliseconds{0}, std::chrono::ceil<milliseconds>(end - now));
}

bool Station::IsOver() const {
  if (Count(Stage::Working) > 0) return false;
  if (isStopping_) return true;
  return plan_.most > 0 && view_.passed + view_.failed >= plan_.most;
}

std::vector<const Process*> Station::Sources() const {
  std::vector<const Process*> sources;
  for (const auto& bay : bays_) {
    if (bay->job && bay->job->worker && bay->job->worker->Source() != nullptr) {
      sources.push_back(bay->job->worker->Source());
    }
  }
  return sources;
}

}  // namespace qzhid
