// A station on a machine of virtual hubs, in virtual time and without processes.
#include "qzhid/station.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <malloc.h>

#include <array>
#include <map>
#include <random>

#include "qzhid/hub_writer.h"
#include "qzhid/state.h"
#include "support/temp_file.h"
#include "virtualhub/bus/current_machine.h"

namespace qzhid {

using virtualhub::Bytes;
using virtualhub::Machine;

// The library's functions are in this program.
Library LoadLibrary(const std::vector<std::string>&) {
  Library library{.file = dlopen(nullptr, RTLD_NOW), .path = "this program"};
  library.ListAllHidDev = QZ_ListAllHidDev;
  library.ListAllHidDevByVIDPID = QZ_ListAllHidDevByVIDPID;
  library.FreeDevList = QZ_FreeDevList;
  library.OpenHid = QZ_OpenHid;
  library.CloseDev = QZ_CloseDev;
  library.DllPassPara = QZ_DllPassPara;
  library.UpdateDev = QZ_UpdateDev;
  library.ReadDevVersion = QZ_ReadDevVersion;
  library.GetHubVIDPIDFromHidDevice = QZ_GetHubVIDPIDFromHidDevice;
  library.SetLogPath = QZ_SetLogPath;
  library.ConfigLog = QZ_ConfigLog;
  return library;
}

namespace test {

constexpr std::size_t kImageSize = 0x8000;
constexpr std::uint16_t kVersion = 0x0210;
constexpr int kTurnsEmpty = 12;    // of a quarter of a second, before the next hub
constexpr std::size_t kPool = 12;  // devices, each of which is one unit after another
const std::vector<std::string> kPorts = {"1", "2", "3.1", "3.2"};

class MachineClock : public Clock {
 public:
  explicit MachineClock(Machine& machine) : machine_(machine) {}
  Time Now() override { return Time(std::chrono::microseconds(machine_.clock().NowUs())); }
  void Sleep(std::chrono::milliseconds time) override {
    machine_.SleepMs(static_cast<std::uint32_t>(time.count()));
  }

 private:
  Machine& machine_;
};

/// Writes its hub when it is asked for the first time.
class WorkerHere : public Worker {
 public:
  WorkerHere(Host& host, Clock& clock, const WorkerJob& job, const Image& image,
             std::function<void()> begin)
      : host_(host), clock_(clock), job_(job), image_(image), begin_(std::move(begin)) {}

  bool Poll(const Reporter& report) override {
    begin_();
    try {
      WriteHub(host_, job_, image_, clock_, report, [this] { return mayRetry_; });
    } catch (const Failure& failure) {
      const bool isReplaced = dynamic_cast<const HubReplaced*>(&failure) != nullptr;
      report(ReportFailed{failure.Status(), failure.what(), failure.Next(), {}, isReplaced});
    }
    return false;
  }
  void Retry() override { mayRetry_ = true; }
  void GiveUp() override { mayRetry_ = false; }

 private:
  Host& host_;
  Clock& clock_;
  WorkerJob job_;
  const Image& image_;
  std::function<void()> begin_;
  bool mayRetry_ = false;
};

enum class Kind { Old, Current, Foreign, Loader };
enum class Pull { None, PutBack, PowerLoss, Replaced, Forever };

/// What a device is from the time when it is plugged in.
struct Unit {
  std::string device;
  Kind kind = Kind::Old;
  Pull pull = Pull::None;
  std::uint64_t pullAt = 0;  ///< exchange after the start
  std::vector<std::string> outcomes{};
  bool isRecovered = false;
};

/// The machine, and the hands of who works at it.
class Line : public StationWorld {
 public:
  explicit Line(unsigned seed)
      : random_(seed),
        machine_(virtualhub::InstallMachine(Scenario())),
        clock_(machine_),
        contents_(virtualhub::BuildImage({.version = kVersion}, kImageSize)),
        file_(contents_),
        image_(ReadImage(file_.path())) {
    host_.Settings().isQuiet = true;
    for (const char* kind : {"old", "current", "foreign", "loader"}) {
      fresh_.push_back(machine_.hub(kind).SaveFlash());
    }
    for (std::size_t i = 0; i < kPool; ++i) free_.push_back("h" + std::to_string(i));
  }
  ~Line() override { machine_.SetExchangeHook({}); }

  Clock::Time Now() override { return clock_.Now(); }
  UnitRecord::Date Date() override { return {}; }
  std::vector<Hub> Hubs() override {
    constexpr int kOneFails = 16;
    if (++lists_ % kOneFails == 0) throw Failure(Exit::Failed, "no list", "", "");
    return ListHubs(host_);
  }
  std::unique_ptr<Worker> Start(const Hub& hub) override {
    const WorkerJob job{.image = file_.path(),
                        .location = hub.Location(),
                        .rules = {.takesLoader = true},
                        .retries = 2,
                        .patience = 30,
                        .isForStation = true};
    return std::make_unique<WorkerHere>(host_, clock_, job, image_,
                                        [this, location = hub.Location()] { Arm(location); });
  }
  bool IsStopWanted() override { return false; }
  void CheckRoom(std::size_t) override {}
  void Keep(const UnitRecord& record) override {
    Unit& unit = *started_.at(record.location);
    unit.outcomes.emplace_back(NameOf(record.outcome));
    unit.isRecovered = record.isRecovered;
  }
  void WriteKept() override {}
  void Show(const StationView& view) override { view_ = view; }
  void Say(const std::string&) override {}

  /// Plugs units in and out until so many were done.
  void Work(std::size_t units) {
    StationPlan plan{.imageSize = kImageSize, .imageVersion = kVersion};
    for (const std::string& port : kPorts) plan.bays.push_back({"bay " + port, "1-" + port});
    Station station(*this, plan);
    constexpr std::size_t kMostTurns = 400;  // for a unit
    for (std::size_t turns = 0; units_ < units || !inBay_.empty(); ++turns) {
      if (turns == units * kMostTurns) return Stuck();
      for (const std::string& port : kPorts) Serve(port, units);
      machine_.SleepMs(250);
      station.Look();
      station.Step();
      if (units_ >= units / 5 && usedAtFirst == 0) usedAtFirst = mallinfo2().uordblks;
    }
    usedAtLast = mallinfo2().uordblks;
    isConsistent = view_.passed + view_.failed == units_;
  }

  void Stuck() {
    for (const auto& t : view_.bays)
      complaints.push_back(t.name + std::to_string(int(t.state)) + t.activity + t.outcome +
                           t.reason);
    for (const auto& [port, unit] : inBay_) {
      complaints.push_back("still at port " + port + ": " + Complaint(unit, false));
    }
  }

  /// How the records and the flash of a unit contradict its fate; empty when they do not.
  static std::string Complaint(const Unit& unit, bool isImageInside) {
    static const std::map<Kind, std::string> kOutcomes = {{Kind::Old, "updated"},
                                                          {Kind::Current, "current"},
                                                          {Kind::Foreign, "refused"},
                                                          {Kind::Loader, "updated"}};
    const bool isGone = unit.pull == Pull::Replaced || unit.pull == Pull::Forever;
    const std::string wanted = isGone ? "lost" : kOutcomes.at(unit.kind);
    const bool isPassed = wanted == "updated" || wanted == "current";
    const bool isRecovery = unit.kind == Kind::Loader && wanted == "updated";
    if (unit.outcomes.size() == 1 && unit.outcomes.front() == wanted && isPassed == isImageInside &&
        unit.isRecovered == isRecovery) {
      return "";
    }
    std::string all;
    for (const std::string& outcome : unit.outcomes) all += outcome + ' ';
    return unit.device + ": kind " + std::to_string(static_cast<int>(unit.kind)) + ", pull " +
           std::to_string(static_cast<int>(unit.pull)) + " at " + std::to_string(unit.pullAt) +
           ": " + all + (isImageInside ? "with the image" : "without the image");
  }

  std::vector<std::string> complaints;
  std::map<Pull, int> pulls;
  std::size_t usedAtFirst = 0, usedAtLast = 0;
  bool isConsistent = false;
  int OpenHandles() const { return machine_.openHandles(virtualhub::HandleKind::HidDevice); }

 private:
  static std::string Scenario() {
    std::string devices = R"({"name": "old", "port": "8", "plugged": false},
      {"name": "current", "port": "8", "plugged": false, "image": {"version": "0x0210"}},
      {"name": "foreign", "port": "8", "plugged": false, "image": {"vid": "0x2E7D"}},
      {"name": "loader", "port": "8", "plugged": false, "image": null})";
    for (std::size_t i = 0; i < kPool; ++i) {
      devices += R"(, {"name": "h)" + std::to_string(i) + R"(", "port": "8", "plugged": false})";
    }
    return R"({"time": "virtual", "devices": [)" + devices + "]}";
  }

  template <typename T>
  T Pick(std::initializer_list<T> choices) {
    return *(choices.begin() + Random(choices.size()));
  }
  std::uint32_t Random(std::uint64_t below) {
    return static_cast<std::uint32_t>(random_() % below);
  }

  Unit NewUnit(Kind kind) {
    Unit unit{.device = free_.front(), .kind = kind};
    free_.erase(free_.begin());
    machine_.hub(unit.device).LoadFlash(fresh_[static_cast<std::size_t>(unit.kind)]);
    ++units_;
    return unit;
  }

  // What the hands do at one bay in one turn.
  void Serve(const std::string& port, std::size_t units) {
    const auto found = inBay_.find(port);
    if (found == inBay_.end()) {
      if (++turnsEmpty_[port] < kTurnsEmpty || units_ >= units) return;
      turnsEmpty_[port] = 0;
      Unit unit = NewUnit(Pick({Kind::Old, Kind::Old, Kind::Old, Kind::Old, Kind::Current,
                                Kind::Foreign, Kind::Loader}));
      const bool isWritten = unit.kind == Kind::Old || unit.kind == Kind::Loader;
      if (isWritten) {
        unit.pull = Pick({Pull::None, Pull::None, Pull::None, Pull::PutBack, Pull::PowerLoss,
                          Pull::Replaced, Pull::Forever});
      }
      // Before the erase the library itself waits for the hub, which resets, and takes any hub.
      constexpr std::uint32_t kErase = 28;
      unit.pullAt = unit.pull == Pull::Replaced ? kErase + Random(212) : 1 + Random(280);
      machine_.Plug(unit.device, port);
      inBay_.emplace(port, unit);
      return;
    }
    const Unit& unit = found->second;
    if (unit.outcomes.empty()) return;
    // Some hubs reset when they are done, which is no unplugging.
    if (Random(3) == 0) return machine_.Unplug(unit.device, 900);
    Finish(port);
  }

  void Finish(const std::string& port) {
    const Unit unit = inBay_.at(port);
    machine_.Unplug(unit.device);
    virtualhub::Hub& hub = machine_.hub(unit.device);
    const auto flash = hub.bank(0).contents();
    const bool isImageInside = unit.kind == Kind::Current
                                   ? hub.SaveFlash() == fresh_[static_cast<std::size_t>(unit.kind)]
                                   : std::equal(contents_.begin(), contents_.end(), flash.begin());
    if (const std::string text = Complaint(unit, isImageInside); !text.empty()) {
      complaints.push_back(text);
    }
    ++pulls[unit.pull];
    free_.push_back(unit.device);
    inBay_.erase(port);
  }

  // Prepares what happens while the hub at that location is written.
  void Arm(const std::string& location) {
    const auto port = std::find_if(kPorts.begin(), kPorts.end(), [&](const std::string& one) {
      return ReadPortId(location).Is("1-" + one);
    });
    Unit& unit = inBay_.at(*port);
    started_[location] = &unit;
    left_ = unit.pull == Pull::None ? 0 : unit.pullAt;
    machine_.SetExchangeHook([this, port = *port](const virtualhub::Exchange&) {
      if (left_ == 0 || --left_ > 0) return;
      Disturb(port);
    });
  }

  void Disturb(const std::string& port) {
    const Unit unit = inBay_.at(port);
    const std::uint32_t back = 500 + Random(15000);
    if (unit.pull == Pull::PutBack) machine_.Unplug(unit.device, back);
    if (unit.pull == Pull::PowerLoss) machine_.PowerLoss(unit.device, back);
    if (unit.pull == Pull::Forever) machine_.Unplug(unit.device);
    if (unit.pull != Pull::Replaced) return;
    // The other hub needs three seconds to its place. The first one gets its record later, so it
    // keeps its place among the units.
    replaced_.push_back(std::make_unique<Unit>(unit));
    started_.at(LocationOf(port)) = replaced_.back().get();
    machine_.Unplug(unit.device);
    // One in its loader would look like the first one, and so would an old one as long as the
    // library has reported little more than the erase.
    constexpr std::uint64_t kErased = 46;
    Unit other = NewUnit(
        Pick({unit.pullAt < kErased ? Kind::Current : Kind::Old, Kind::Current, Kind::Foreign}));
    free_.push_back(unit.device);
    other.pull = Pull::None;
    machine_.Plug(other.device, port);
    machine_.Unplug(other.device, 3000, port);
    inBay_.at(port) = other;
  }

  std::string LocationOf(const std::string& port) const {
    for (const auto& [location, unit] : started_) {
      if (ReadPortId(location).Is("1-" + port)) return location;
    }
    return "";
  }

 public:
  /// The units that other ones have taken the place of.
  std::vector<std::string> ReplacedComplaints() {
    std::vector<std::string> all;
    for (const auto& unit : replaced_) {
      if (const std::string text = Complaint(*unit, false); !text.empty()) all.push_back(text);
    }
    pulls[Pull::Replaced] += static_cast<int>(replaced_.size());
    return all;
  }

 private:
  std::mt19937 random_;
  Machine& machine_;
  MachineClock clock_;
  Host host_;
  Bytes contents_;
  TempFile file_;
  Image image_;
  std::vector<Bytes> fresh_;           ///< flash of new units, by kind
  std::vector<std::string> free_;      ///< devices
  std::map<std::string, Unit> inBay_;  ///< by port
  std::map<std::string, int> turnsEmpty_;
  std::map<std::string, Unit*> started_;  ///< by location, whose record comes next
  std::vector<std::unique_ptr<Unit>> replaced_;
  std::uint64_t left_ = 0;  ///< exchanges until the pull
  std::size_t units_ = 0;
  int lists_ = 0;
  StationView view_;
};

TEST(StationTest, EveryUnitHasOneRecordAndTheImageOrTheReasonWhyNot) {
  constexpr std::size_t kUnits = 500;
  constexpr std::size_t kFlat = 0x10000;
  Line line(20261122);
  line.Work(kUnits);
  EXPECT_THAT(line.complaints, ::testing::IsEmpty());
  EXPECT_THAT(line.ReplacedComplaints(), ::testing::IsEmpty());
  EXPECT_TRUE(line.isConsistent) << "the totals are those of the units";
  EXPECT_EQ(5u, line.pulls.size());
  for (const auto& [pull, count] : line.pulls) EXPECT_LT(10, count) << static_cast<int>(pull);
  EXPECT_LT(line.usedAtLast, line.usedAtFirst + kFlat) << "memory is flat";
  EXPECT_EQ(0, line.OpenHandles());
}

}  // namespace test
}  // namespace qzhid
