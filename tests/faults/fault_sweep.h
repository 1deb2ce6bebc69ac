// A job of the library, repeated with one fault at every place where one can strike.
#pragma once

#include <cstdio>
#include <map>
#include <new>
#include <thread>

#include "api/api_test.h"
#include "scarce_memory.h"

namespace qzhid::test {

/// What goes wrong, at each event that `fault.on` names or at each allocation.
struct FaultKind {
  enum class Memory { Enough, FailsOnce, FailsFromThenOn };

  const char* name;
  Fault fault = {};
  bool isQuick = false;  ///< part of the sweeps of the small jobs, too
  Memory memory = Memory::Enough;

  bool Unplugs() const {
    return fault.action == Fault::Action::Unplug || fault.action == Fault::Action::PowerLoss;
  }
  /// The hub is away for a while, so that its old number may come back.
  bool ComesBackAsItWas() const {
    return (Unplugs() && fault.returnMs && fault.port.empty()) ||
           fault.action == Fault::Action::Hold;
  }
  /// The hub stays away until it is plugged.
  bool IsForGood() const {
    return fault.action == Fault::Action::NeverReturn || (Unplugs() && !fault.returnMs);
  }
  /// The fault gives the library a false answer.
  bool IsLie() const {
    return (fault.action >= Fault::Action::AnswerZeros &&
            fault.action <= Fault::Action::LoseWrite) ||
           (fault.on == Fault::On::Input && fault.action == Fault::Action::Fail &&
            fault.code == 0 && memory == Memory::Enough);
  }
};

/// The hub at the start: named "hub", with an I2C target, at port 3.1; a keyboard is there, too.
struct Start {
  const char* name;
  const char* members;  ///< more JSON members of the hub
  bool isDual = false, isValidating = false;
  const char* numbers = "by_arrival";  ///< how nodes get theirs
};

struct Job {
  enum class Leaves { Anything, Nothing, WhatItOpened };

  const char* name;
  bool isGivenHandle;
  Leaves leaves;                           ///< the devices that are open afterwards
  std::function<bool(void*& handle)> run;  ///< whether it was reported as done
  std::function<bool()> isDone;            ///< whether it then is
  /// Whether it may be reported as done when it is not, with a fault at a request of that key.
  std::function<bool(const FaultKind&, std::uint16_t key)> mayLie =
      [](const FaultKind& kind, std::uint16_t) { return kind.IsLie(); };
  bool isExport = true;  ///< which logs its failure and throws nothing
};

class FaultSweep : public ApiTest {
 protected:
  FaultSweep() {
    CMsg::Instance().ClearResponders();
    CMsg::Instance().AddResponder(&m_Listener);
  }
  ~FaultSweep() override { CMsg::Instance().RemoveResponder(&m_Listener); }

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
    EXPECT_EQ(0, all.lost);
  }

  bool Update(void* opened) const { return QZ_UpdateDev(opened, file.path(), OnProgress) == 1; }
  bool RunsImage() {
    return hub().code() == virtualhub::Code::Flash && Holds(image, hub().activeBank());
  }

  const Bytes image = virtualhub::BuildImage({.version = 0x0210}, 0x8000);
  const TempFile file{image};

 private:
  /// Where a fault strikes.
  struct Place {
    Fault fault = {};
    std::uint64_t allocation = 0;  ///< 0: the fault strikes
    std::uint16_t key = 0;         ///< of the request under way
    unsigned row = 0, index = 0;   ///< which one that is in which row of requests of that key
  };
  /// Counts the failures in the log, without memory of its own.
  struct Listener final : SilentReceiver {
    void OnLog(const char*, int level) override { failures += level >= 3 ? 1 : 0; }
    int failures = 0;
  };
  struct Outcomes {
    int tried = 0, done = 0, wrong = 0, failed = 0, replugged = 0, lost = 0;
  };

  static void OnProgress(std::int32_t percent) { s_progress = percent; }

  /// Lists the hub, and opens it if that is wanted.
  void* Prepare(bool isOpened) {
    List();
    return isOpened ? QZ_OpenHid(machine->HidInstance("hub")) : nullptr;
  }

  /// Does the job without faults; the places where the kind can strike it. Of a long row of
  /// requests that differ in their address only, those at its ends and a few between.
  std::vector<Place> FindPlaces(const Job& job, const FaultKind& kind) {
    Install(m_Scenario);
    handle = Prepare(job.isGivenHandle);
    const bool countsMemory = kind.memory != FaultKind::Memory::Enough;
    if (!countsMemory) machine->recorder().Start();  // which uses memory, too
    MakeMemoryScarce(0, 0);
    const bool isReported = job.run(handle);
    const std::uint64_t allocations = EndScarcity();
    EXPECT_TRUE(isReported) << m_Trace;
    EXPECT_TRUE(job.isDone()) << m_Trace;

    std::vector<Place> places;
    for (std::uint64_t i = 1; countsMemory && i <= allocations; ++i) places.push_back({{}, i});
    Place place{kind.fault};
    std::map<std::optional<Service>, std::uint32_t> events;
    std::map<unsigned, unsigned> lengths;  // of the rows
    for (const auto& record : machine->recorder().all()) {
      if (record.kind == virtualhub::Record::Kind::Request) {
        const bool goesOn = record.key() == std::exchange(place.key, record.key());
        place.row += goesOn ? 0 : 1;
        place.index = goesOn ? place.index + 1 : 0;
        lengths[place.row] = place.index + 1;
      }
      if (!IsEventOf(kind, record)) continue;
      place.fault.service = record.service;
      place.fault.nth = ++events[record.service];
      if (kind.Unplugs()) place.fault.device = "hub";
      places.push_back(place);
    }
    std::erase_if(places, [&lengths](const Place& each) {
      return each.index >= 2 && each.index + 2 < lengths[each.row] && each.index % 50 != 0;
    });
    QZ_CloseDev(std::exchange(handle, nullptr));
    return places;
  }

  bool IsEventOf(const FaultKind& kind, const virtualhub::Record& record) {
    const bool isOutput = record.kind == virtualhub::Record::Kind::Output;
    const bool isInput = record.kind == virtualhub::Record::Kind::Input;
    const bool isCall = record.kind == virtualhub::Record::Kind::Call;
    const bool isRequest = record.kind == virtualhub::Record::Kind::Request;
    const bool isReset = isRequest && (record.key() == 0x4000 || record.key() == 0x40E9);
    const bool isOfKeyboard = record.instance == machine->HidInstance("keyboard") ||
                              record.instance == machine->UsbInstance("keyboard");
    const std::map<Fault::On, bool> isEvent = {
        {Fault::On::Output, isOutput},
        {Fault::On::Input, isInput},
        {Fault::On::Exchange, isOutput || isInput},
        {Fault::On::Reset, isReset},
        {Fault::On::Call, isCall && !(isOfKeyboard && kind.Unplugs())}};
    return isEvent.at(kind.fault.on);
  }

  void Inject(const Start& start, const Job& job, const FaultKind& kind, const Place& place) {
    Install(m_Scenario);
    handle = Prepare(job.isGivenHandle);
    m_Listener.failures = 0;
    s_progress = 0;
    const std::uint64_t exchanges = machine->exchanges();
    const bool isReported = RunStruck(job, kind, place);
    ++m_Outcomes.tried;
    if (!isReported) {
      ++m_Outcomes.failed;
      Check(s_progress == 0, "progress is back at 0", place);
      Check(m_Listener.failures > 0 || !job.isExport, "the log reports the failure", place);
    } else if (job.isDone()) {
      ++m_Outcomes.done;
    } else {
      ++m_Outcomes.wrong;
      Check(job.mayLie(kind, place.key), "what is reported as done is done", place);
    }
    // Out of memory before its first request, a job may leave the device as it was.
    const bool isUntouched = place.allocation != 0 && machine->exchanges() == exchanges;
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
    if (place.allocation == 0) {
      machine->AddFault(place.fault);
      return job.run(handle);
    }
    const bool isOnce = kind.memory == FaultKind::Memory::FailsOnce;
    const std::uint64_t exchanges = machine->exchanges();
    MakeMemoryScarce(place.allocation, isOnce ? place.allocation : UINT64_MAX);
    bool isReported = false, isThrown = false;
    try {
      isReported = job.run(handle);
    } catch (const std::bad_alloc&) {
      isThrown = true;
    }
    Check(EndScarcity() >= place.allocation, "the fault strikes", place);
    Check(!isThrown || !job.isExport, "no exception leaves an export", place);
    Check(!isThrown || Handles() == kNoHandles || machine->exchanges() == exchanges,
          "throwing leaves nothing open", place);
    return isReported;
  }

  /// Brings the hub back and updates it as a host does that has just been started.
  void Recover(const FaultKind& kind, const Place& place) {
    if (machine->HidInstance("hub") == 0) {
      ++m_Outcomes.replugged;
      Check(kind.IsForGood(), "the hub comes back by itself", place);
      machine->Plug("hub");
    }
    void* const opened = Prepare(true);
    const bool isUpdated = Update(opened) && RunsImage();
    QZ_CloseDev(opened);
    if (!isUpdated) ++m_Outcomes.lost;
    Check(isUpdated, "it can be updated", place);
    Check(Handles() == kNoHandles, "that leaves nothing open", place);
  }

  void Check(bool isMet, const char* claim, const Place& place) {
    if (isMet || ++m_nComplaints > 5) return;
    ADD_FAILURE() << m_Trace << ": not so: " << claim << ", with the fault at "
                  << (place.fault.service ? NameOf(*place.fault.service) : "an event") << ' '
                  << place.fault.nth << ", allocation " << place.allocation << ", request "
                  << std::hex << place.key;
  }

  static inline int s_progress;
  Listener m_Listener;
  virtualhub::Scenario m_Scenario;
  Outcomes m_Outcomes;
  std::string m_Trace;
  int m_nComplaints = 0;
};

}  // namespace qzhid::test
