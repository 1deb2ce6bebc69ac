// Each job of the library with one fault, wherever it may strike: the host learns of it, and the
// hub can be updated afterwards.
#include <dlfcn.h>

#include <cstdio>
#include <map>
#include <new>
#include <thread>

#include "api/api_calls.h"
#include "discovery/hid_find.h"
#include "faults/log_judge.h"
#include "flow/universal_flow.h"

// Allocations of a thread by operator new are counted, and from the first to the last of these
// they fail. Those of the virtual hub count, too: a platform service runs out of memory as well.
static thread_local std::uint64_t t_used = 0, t_first = UINT64_MAX, t_last = 0;

using Allocator = void* (*)(std::size_t);

static void* Allocate(Allocator next, std::size_t size) {
  if (++t_used >= t_first && t_used <= t_last) throw std::bad_alloc();
  return next(size);
}
void* operator new(std::size_t size) {
  static const auto next = reinterpret_cast<Allocator>(dlsym(RTLD_NEXT, "_Znwm"));
  return Allocate(next, size);
}
void* operator new[](std::size_t size) {
  static const auto next = reinterpret_cast<Allocator>(dlsym(RTLD_NEXT, "_Znam"));
  return Allocate(next, size);
}

namespace qzhid::test {
namespace {

using On = Fault::On;
using enum Fault::Action;
using Record = virtualhub::Record;

enum Traits : unsigned {
  kPlain = 0,
  kQuick = 1,        ///< part of the sweeps of the small jobs, too
  kLie = 2,          ///< gives the library a false answer
  kBack = 4,         ///< the hub is away for a while, so that its old number may come back
  kForGood = 8,      ///< the hub stays away until it is plugged
  kOutOfMemory = 16  ///< allocations fail, one or all from then on
};

/// What goes wrong, at each event that `fault.on` names or at each allocation.
struct FaultKind {
  const char* name;
  unsigned traits;
  Fault fault = {};

  bool Is(Traits trait) const { return (traits & trait) != 0; }
};

const FaultKind kFaultKinds[] = {
    {"output report fails", kQuick, {.on = On::Output, .code = 5}},
    {"output report fails without a code", kPlain, {.on = On::Output}},
    {"input report fails", kQuick, {.on = On::Input, .code = 5}},
    {"input report fails without a code", kQuick | kLie, {.on = On::Input}},
    {"report stalls", kPlain, {.action = Stall}},
    {"answer all zeros", kLie, {.on = On::Input, .action = AnswerZeros}},
    {"answer all ones", kLie, {.on = On::Input, .action = AnswerOnes}},
    {"answer random", kQuick | kLie, {.on = On::Input, .action = AnswerRandom}},
    {"request taken, not carried out", kQuick | kLie, {.on = On::Output, .action = LoseWrite}},
    {"unplugged and back", kQuick | kBack, {.action = Unplug, .returnMs = 500}},
    {"back at once, new instance", kBack, {.action = Unplug, .returnMs = 0}},
    {"back on another port", kPlain, {.action = Unplug, .returnMs = 0, .port = "4"}},
    {"unplugged for good", kQuick | kForGood, {.action = Unplug}},
    {"power lost", kQuick | kBack, {.action = PowerLoss, .returnMs = 500}},
    {"power lost for good", kForGood, {.action = PowerLoss}},
    {"never back from reset", kQuick | kForGood, {.on = On::Reset, .action = NeverReturn}},
    {"reset to another port", kQuick, {.on = On::Reset, .action = ReturnAt, .port = "4"}},
    {"taken by another program in a reset",
     kBack,
     {.on = On::Reset, .action = Hold, .releaseMs = 1500}},
    {"platform call fails", kQuick, {.on = On::Call, .code = 13}},
    {"platform call fails without a code", kPlain, {.on = On::Call}},
    {"call, unplugged and back", kBack, {.on = On::Call, .action = Unplug, .returnMs = 500}},
    {"call, unplugged for good", kQuick | kForGood, {.on = On::Call, .action = Unplug}},
    {"call, power lost", kBack, {.on = On::Call, .action = PowerLoss, .returnMs = 500}},
    {"out of memory once", kQuick | kOutOfMemory, {.count = 1}},
    {"out of memory from then on", kQuick | kOutOfMemory, {.count = 0}}};

/// The hub at the start: named "hub", with an I2C target, at port 3.1; a keyboard is there, too.
struct Start {
  const char* name;
  const char* members;                 ///< more JSON members of the hub
  bool isDual = false;                 ///< it runs its firmware at any time
  const char* numbers = "by_arrival";  ///< how nodes get theirs
};

const Start kFlash = {"flash code", ""};
/// Flash code with the ids of ROM code: the hub's nodes have the same numbers all the time.
const Start kSameNumbers = {"same numbers", R"(, "rom": {"pid": "0x0818"})", false, "by_id"};
const Start kStarts[] = {
    kFlash,
    {"ROM code", R"(, "running": "rom", "image": {"size": 32768})"},
    {"two banks", R"(, "dual_bank": true, "second_image": {"version": "0x0100", "size": 32768})",
     true},
    {"two banks, validating",
     R"(, "dual_bank": true, "isp_supported": true,
        "second_image": {"version": "0x0100", "size": 32768})",
     true},
    kSameNumbers};

struct Job {
  enum class Leaves { Anything, Nothing, WhatItOpened };

  const char* name;
  const char* exportName;  ///< how the name of each export that it calls begins
  bool isGivenHandle;
  Leaves leaves;                           ///< the devices that are open afterwards
  std::function<bool(void*& handle)> run;  ///< whether it was reported as done
  std::function<bool()> isDone;            ///< whether it then is
  /// Whether it may be reported as done when it is not, with a fault at a request of that key.
  std::function<bool(const FaultKind&, std::uint16_t key)> mayLie =
      [](const FaultKind& kind, std::uint16_t) { return kind.Is(kLie); };
  bool isExport = true;  ///< which logs its failure and throws nothing
};

class FaultSweep : public ApiTest {
 protected:
  FaultSweep() {
    CMsg::Instance().ClearResponders();
    CMsg::Instance().AddResponder(&m_Listener);
  }
  ~FaultSweep() override { CMsg::Instance().RemoveResponder(&m_Listener); }

  /// How the logs of all cases were explained, a line for each kind.
  static void TearDownTestSuite() {
    for (const auto& entry : s_judge.Scores()) {
      const std::string& kind = entry.first;
      const auto& score = entry.second;
      std::printf("explained: %s|%d|%d|%d|%d|%d|%d\n", kind.c_str(), score.failed, score.named,
                  score.otherStep, score.silent, score.good, score.blamed);
      // What a false answer leads to is all that a log can show.
      const bool isLie = std::any_of(
          std::begin(kFaultKinds), std::end(kFaultKinds),
          [&kind](const FaultKind& each) { return each.name == kind && each.Is(kLie); });
      if (isLie) continue;
      EXPECT_EQ(score.failed, score.named) << kind;
      EXPECT_EQ(0, score.blamed) << kind;
    }
    EXPECT_EQ(0u, s_judge.UnknownLines());
  }

  /// Injects the kind at the places of the job; prints one line of the summary.
  void Sweep(const Start& start, const Job& job, const FaultKind& kind) {
    m_Trace = Text("%s, %s, %s", job.name, start.name, kind.name);
    m_Scenario = virtualhub::ReadScenario(Text(
        R"({"instance_numbers": "%s", "devices": [{"name": "hub", "port": "3.1",
              "bank_size": 65536, "i2c": [{"kind": "eeprom", "address": "0xA0", "size": 32768,
              "address_bytes": 2}]%s}, {"name": "keyboard", "kind": "other", "port": "5"}]})",
        start.numbers, start.members));
    m_Outcomes = {};
    for (const Place& place : FindPlaces(job, kind)) Inject(start, job, kind, place);
    const Outcomes& all = m_Outcomes;
    if (all.tried == 0) return;
    std::printf("fault sweep: %s|%s|%s|%d|%d|%d|%d|%d|%d\n", job.name, start.name, kind.name,
                all.tried, all.done, all.wrong, all.failed, all.replugged, all.lost);
  }

  bool Update(void* dev) const { return QZ_UpdateDev(dev, file.path(), OnProgress) == 1; }
  bool RunsImage() {
    return hub().code() == virtualhub::Code::Flash && Holds(image, hub().activeBank());
  }

  const Bytes image = virtualhub::BuildImage({.version = 0x0210}, 0x8000);
  const TempFile file{image};

 private:
  /// Where a fault strikes: its number is that of the event or the allocation.
  struct Place {
    Fault fault = {};
    std::uint16_t key = 0;        ///< of the request under way
    unsigned row = 0, index = 0;  ///< which one that is in which row of requests of that key
    StepSet steps = kAnyStep;     ///< in which of the job it is
  };
  /// How far the job without faults had come when it reported a percentage.
  struct Mark {
    int percent;
    std::uint64_t used;
    std::uint64_t records;
  };
  /// Counts the failures in the log and hands its lines on, without memory of its own.
  struct Listener final : SilentReceiver {
    void OnLog(const char* line, int level) override {
      failures += level >= 3 ? 1 : 0;
      s_judge.Add(line);
    }
    int failures = 0;
  };
  struct Outcomes {
    int tried = 0, done = 0, wrong = 0, failed = 0, replugged = 0, lost = 0;
  };

  static void OnProgress(std::int32_t percent) {
    s_progress = percent;
    if (s_nMarks < std::size(s_marks)) {
      s_marks[s_nMarks++] = {percent, t_used, virtualhub::CurrentMachine().recorder().all().size()};
    }
  }

  /// A machine whose hub is listed, and open if that is wanted.
  void Prepare(bool isOpen) {
    Install(m_Scenario);
    List();
    handle = isOpen ? QZ_OpenHid(machine->HidInstance("hub")) : nullptr;
  }

  /// Does the job without faults; the places where the kind can strike it. Of a long row of
  /// requests that differ in their address only, those at its ends and a few between.
  std::vector<Place> FindPlaces(const Job& job, const FaultKind& kind) {
    Prepare(job.isGivenHandle);
    if (!kind.Is(kOutOfMemory)) machine->recorder().Start();  // which uses memory, too
    t_used = 0;
    s_nMarks = 0;
    const bool isReported = job.run(handle);
    const std::uint64_t allocations = kind.Is(kOutOfMemory) ? t_used : 0;
    EXPECT_TRUE(isReported) << m_Trace;
    EXPECT_TRUE(job.isDone()) << m_Trace;

    std::vector<Place> places;
    Place place{kind.fault};
    if (kind.fault.action == Unplug || kind.fault.action == PowerLoss) place.fault.device = "hub";
    const bool isUpdate = job.exportName == std::string("QZ_UpdateDev");
    for (place.fault.nth = 1; place.fault.nth <= allocations; ++place.fault.nth) {
      if (isUpdate) place.steps = StepsOfUpdate(PercentAt(&Mark::used, place.fault.nth - 1));
      places.push_back(place);
    }
    std::map<std::optional<Service>, std::uint32_t> events;
    std::map<unsigned, unsigned> lengths;  // of the rows
    bool isResetSent = false, isModeRead = false;
    for (const Record& record : machine->recorder().all()) {
      const auto number = static_cast<std::uint64_t>(&record - machine->recorder().all().data());
      const int percent = PercentAt(&Mark::records, number);
      isResetSent = isResetSent || record.key() == 0x4000;
      isModeRead = isModeRead || (percent >= 20 && (!isResetSent || record.key() == 0xC009));
      if (record.kind == Record::Kind::Request) {
        const bool goesOn = record.key() == std::exchange(place.key, record.key());
        place.row += goesOn ? 0 : 1;
        place.index = goesOn ? place.index + 1 : 0;
        lengths[place.row] = place.index + 1;
      }
      if (!IsEventOf(place.fault, record)) continue;
      place.fault.service = record.service;
      place.fault.nth = ++events[record.service];
      const bool isSending = record.kind == Record::Kind::Output;
      if (isUpdate) place.steps = StepOfUpdate(percent, place.key, isModeRead, isSending);
      if (isUpdate && place.fault.on == On::Reset && place.key == 0x4000) {
        place.steps = Only(Step::LoaderBack);
      }
      places.push_back(place);
    }
    std::erase_if(places, [&lengths](const Place& each) {
      return each.index >= 2 && each.index + 2 < lengths[each.row] && each.index % 50 != 0;
    });
    QZ_CloseDev(std::exchange(handle, nullptr));
    return places;
  }

  /// What the job without faults had reported when the counter of the mark was at that number.
  static int PercentAt(std::uint64_t Mark::*counter, std::uint64_t number) {
    int percent = -1;
    for (std::size_t i = 0; i < s_nMarks && s_marks[i].*counter <= number; ++i) {
      percent = s_marks[i].percent;
    }
    return percent;
  }

  bool IsEventOf(const Fault& fault, const Record& record) {
    switch (record.kind) {
      case Record::Kind::Output:
        return fault.on == On::Output || fault.on == On::Exchange;
      case Record::Kind::Input:
        return fault.on == On::Input || fault.on == On::Exchange;
      case Record::Kind::Request:
        return fault.on == On::Reset && (record.key() == 0x4000 || record.key() == 0x40E9);
      case Record::Kind::Call:
        return fault.on == On::Call &&
               (fault.device.empty() || (record.instance != machine->HidInstance("keyboard") &&
                                         record.instance != machine->UsbInstance("keyboard")));
      default:
        return false;
    }
  }

  void Inject(const Start& start, const Job& job, const FaultKind& kind, const Place& place) {
    s_judge.Begin();
    Prepare(job.isGivenHandle);
    m_Listener.failures = 0;
    s_progress = 0;
    const std::uint64_t exchanges = machine->exchanges();
    const bool isReported = RunStruck(job, kind, place);
    s_judge.End();
    const std::string service =
        place.fault.service ? std::string(NameOf(*place.fault.service)) : "event";
    const std::string where = m_Trace + Text(", %s %d, request %x", service.c_str(),
                                             static_cast<int>(place.fault.nth), place.key);
    ++m_Outcomes.tried;
    if (!isReported) {
      ++m_Outcomes.failed;
      // Only an export logs that there is no memory.
      if (job.isExport || !kind.Is(kOutOfMemory)) {
        s_judge.JudgeFailure(kind.name, job.exportName, place.steps, where);
      }
      Check(s_progress == 0, "progress is back at 0", place);
      Check(m_Listener.failures > 0 || !job.isExport, "the log reports the failure", place);
    } else if (job.isDone()) {
      ++m_Outcomes.done;
      s_judge.JudgeSuccess(kind.name, where);
    } else {
      ++m_Outcomes.wrong;
      Check(job.mayLie(kind, place.key), "what is reported as done is done", place);
    }
    // Out of memory before its first request, a job may leave the device as it was.
    const bool isUntouched = kind.Is(kOutOfMemory) && machine->exchanges() == exchanges;
    if (job.leaves == Job::Leaves::WhatItOpened) {
      Check(Handles() == (isReported ? kOneDevice : kNoHandles), "what it opened is open", place);
    } else if (job.leaves == Job::Leaves::Nothing && !(job.isGivenHandle && isUntouched)) {
      Check(Handles() == kNoHandles, "nothing is left open", place);
    }
    s_progress = -1;
    CMsg::Instance().Progress(1);
    Check(s_progress == -1, "no receiver is left", place);
    machine->ClearFaults();
    machine->SleepMs(2000);
    const bool isRunning = hub().code() == virtualhub::Code::Flash;
    Check(isRunning || !start.isDual, "the firmware runs", place);
    QZ_CloseDev(std::exchange(handle, nullptr));
    Check(Handles() == kNoHandles, "closing leaves nothing open", place);
    std::thread([&] { Recover(kind, place); }).join();  // other threads may call again
  }

  bool RunStruck(const Job& job, const FaultKind& kind, const Place& place) {
    const Fault& fault = place.fault;
    const std::uint64_t exchanges = machine->exchanges();
    if (!kind.Is(kOutOfMemory)) machine->AddFault(fault);
    bool isReported = false, isThrown = false;
    t_used = 0;
    t_last = fault.count == 1 ? fault.nth : UINT64_MAX;
    t_first = kind.Is(kOutOfMemory) ? fault.nth : UINT64_MAX;
    try {
      isReported = job.run(handle);
    } catch (const std::bad_alloc&) {
      isThrown = true;
    }
    t_first = UINT64_MAX;
    Check(t_used >= fault.nth || !kind.Is(kOutOfMemory), "the fault strikes", place);
    Check(!isThrown || !job.isExport, "no exception leaves an export", place);
    Check(!isThrown || Handles() == kNoHandles || machine->exchanges() == exchanges,
          "throwing leaves nothing open", place);
    return isReported;
  }

  /// Brings the hub back and updates it as a host does that has just been started.
  void Recover(const FaultKind& kind, const Place& place) {
    if (machine->HidInstance("hub") == 0) {
      ++m_Outcomes.replugged;
      Check(kind.Is(kForGood), "the hub comes back by itself", place);
      machine->Plug("hub");
    }
    List();
    void* const dev = QZ_OpenHid(machine->HidInstance("hub"));
    const bool isUpdated = Update(dev) && RunsImage();
    QZ_CloseDev(dev);
    m_Outcomes.lost += isUpdated ? 0 : 1;
    Check(isUpdated, "it can be updated", place);
    Check(Handles() == kNoHandles, "that leaves nothing open", place);
  }

  void Check(bool isMet, const char* claim, const Place& place) {
    if (isMet || ++m_nComplaints > 5) return;
    const Fault& fault = place.fault;
    ADD_FAILURE() << m_Trace << ": not so: " << claim << ", with the fault at "
                  << (fault.service ? NameOf(*fault.service) : "event") << ' ' << fault.nth
                  << ", request " << std::hex << place.key;
  }

  static inline int s_progress;
  static inline Mark s_marks[512];
  static inline std::size_t s_nMarks = 0;
  static inline LogJudge s_judge;
  Listener m_Listener;
  virtualhub::Scenario m_Scenario;
  Outcomes m_Outcomes;
  std::string m_Trace;
  int m_nComplaints = 0;
};

class UpdateSweep : public FaultSweep, public ::testing::WithParamInterface<Start> {};
INSTANTIATE_TEST_SUITE_P(Starts, UpdateSweep, ::testing::ValuesIn(kStarts), [](const auto& given) {
  std::string name = given.param.name;
  std::erase_if(name, [](char letter) { return letter < 'A'; });
  return name;
});

// What the hub takes without carrying it out can pass for a whole update: the check of a hub that
// does not validate images accepts contents that differ, and nobody asks which code the hub runs
// after the reset.
TEST_P(UpdateSweep, EndsInAClearResultAndAHubThatCanBeUpdated) {
  const std::string start = GetParam().name;
  const auto mayPass = [&](const FaultKind& kind, std::uint16_t key) {
    const bool isUnnoticed = !start.ends_with("validating") && (key == 0x40C8 || key == 0x40E8);
    return kind.fault.action == LoseWrite && (key == 0x40E9 || isUnnoticed);
  };
  const Job job = {"update",
                   "QZ_UpdateDev",
                   true,
                   Job::Leaves::Nothing,
                   [this](void* dev) { return Update(dev); },
                   [this] { return RunsImage(); },
                   mayPass};
  for (const FaultKind& kind : kFaultKinds) {
    if (start != kSameNumbers.name || kind.Is(kBack)) Sweep(GetParam(), job, kind);
  }
}

TEST_F(FaultSweep, EachJobReportsItsFailureAndLeavesOpenWhatItPromises) {
  using enum Job::Leaves;
  HidDevRecord* records = nullptr;
  std::uint8_t result = 0;
  std::uint16_t version = 0;
  std::uint32_t count = 0, vid = 0, pid = 0;
  std::uint64_t exchanges = 0;
  const auto isAlways = [] { return true; };
  const auto isAnyLie = [](const FaultKind&, std::uint16_t) { return true; };
  const auto number = [this] { return machine->HidInstance("hub"); };
  // A list is returned exactly with the result 1.
  const auto isTaken = [&](std::uint8_t listed) {
    return (result = listed) == 1 || records != nullptr;
  };
  const auto isListed = [&] {
    QZ_FreeDevList(records);
    return std::exchange(records, nullptr) != nullptr && result == 1 &&
           std::exchange(count, 0) == 1;
  };
  const auto isVersion = [&](int expected) { return std::exchange(version, 0) == expected; };
  const auto areIds = [&] { return std::exchange(vid, 0) == 0x2E7C && pid == 0x0818; };
  const auto crossBridges = [&](void* dev) {
    exchanges = machine->exchanges();
    return QZ_HidI2CConfig(dev, 0xA0, 2, 1) == 0 &&
           std::all_of(std::begin(kApiCalls), std::end(kApiCalls),
                       [dev](const ApiCall& call) { return call.call(dev) == call.Result(0); });
  };
  const auto runFlow = [](void* dev, bool (CUniversalFlow::*job)()) {
    CHidFind finder;
    finder.AddDev(static_cast<IDev*>(dev));
    finder.DummyRemove(static_cast<IDev*>(dev));
    CUniversalFlow flow(finder, *static_cast<IDev*>(dev));
    return (flow.*job)();
  };
  const Job jobs[] = {
      {"list", "QZ_ListAllHidDev", false, Nothing,
       [&](void*) { return isTaken(QZ_ListAllHidDev(&records, &count)); }, isListed},
      {"list by ids", "QZ_ListAllHidDevByVIDPID", false, Nothing,
       [&](void*) { return isTaken(QZ_ListAllHidDevByVIDPID(0x2E7C, 0x818, &records, &count)); },
       isListed},
      {"open", "QZ_OpenHid", false, WhatItOpened,
       [&](void*& opened) { return (opened = QZ_OpenHid(number())) != nullptr; }, isAlways},
      {"close", "QZ_CloseDev", true, Nothing, [](void* dev) { return QZ_CloseDev(dev), true; },
       [&] { return QZ_HidI2CConfig(handle, 0xA0, 2, 1) == kRejected; }},
      {"read the hub's version", "QZ_ReadDevVersion", true, Nothing,
       [&](void* dev) { return QZ_ReadDevVersion(dev, &version) == 1; },
       [&] { return isVersion(0x0102); }},
      {"read the file's version", "QZ_ReadBinVersion", true, Nothing,
       [&](void* dev) { return QZ_ReadBinVersion(dev, file.path(), &version) == 1; },
       [&] { return isVersion(0x0210); }},
      {"read the hub's ids", "QZ_", false, Nothing,
       [&](void*) { return QZ_GetHubVIDPIDFromHidDevice(number(), &vid, &pid) == 1; }, areIds},
      {"read the file's ids", "QZ_GetHidBinFileVIDPID", false, Nothing,
       [&](void*) { return QZ_GetHidBinFileVIDPID(file.path(), &vid, &pid) == 1; }, areIds},
      {"bridges", "QZ_", true, Anything, crossBridges,
       [&] { return machine->exchanges() == exchanges + 16 && hub().gpio()[5]; }},
      // Jobs that no export offers yet. A hub that does not come back is reported as erased.
      {"erase", "", true, Anything,
       [&](void* dev) { return runFlow(dev, &CUniversalFlow::DevErase); },
       [&] { return hub().bank(0).contents()[0x7F12] == 0xFF; }, isAnyLie, false},
      {"reset", "", true, Anything,
       [&](void* dev) { return runFlow(dev, &CUniversalFlow::ResetDeviceonly); }, isAlways,
       isAnyLie, false}};
  for (const Job& job : jobs) {
    for (const FaultKind& kind : kFaultKinds) {
      if (kind.Is(kQuick)) Sweep(kFlash, job, kind);
      if (!job.isExport && kind.Is(kBack)) Sweep(kSameNumbers, job, kind);
    }
  }
}

}  // namespace
}  // namespace qzhid::test
