#include "fault_sweep.h"

#include <cstdio>
#include <map>
#include <new>

#include "scarce_memory.h"

namespace qzhid::test {

using At = FaultKind::At;
using Action = Fault::Action;
using virtualhub::Record;

const std::vector<FaultKind> kFaultKinds = {
    {"output report fails", At::Output, {.code = 5}, true},
    {"output report fails without a code", At::Output, {}},
    {"input report fails", At::Input, {.code = 5}, true},
    {"input report fails without a code", At::Input, {}, true},
    {"report stalls", At::Exchange, {.action = Action::Stall}},
    {"answer all zeros", At::Input, {.action = Action::AnswerZeros}},
    {"answer all ones", At::Input, {.action = Action::AnswerOnes}},
    {"answer random", At::Input, {.action = Action::AnswerRandom}, true},
    {"request taken, not carried out", At::Output, {.action = Action::LoseWrite}, true},
    {"unplugged and back", At::Exchange, {.action = Action::Unplug, .returnMs = 500}, true},
    {"back at once, new instance", At::Exchange, {.action = Action::Unplug, .returnMs = 0}},
    {"back on another port", At::Exchange, {.action = Action::Unplug, .returnMs = 0, .port = "4"}},
    {"unplugged for good", At::Exchange, {.action = Action::Unplug}, true},
    {"power lost", At::Exchange, {.action = Action::PowerLoss, .returnMs = 500}, true},
    {"power lost for good", At::Exchange, {.action = Action::PowerLoss}},
    {"never back from reset", At::Reset, {.action = Action::NeverReturn}, true},
    {"reset to another port", At::Reset, {.action = Action::ReturnAt, .port = "4"}, true},
    {"taken by another program in a reset", At::Reset, {.action = Action::Hold, .releaseMs = 1500}},
    {"platform call fails", At::Call, {.code = 13}, true},
    {"platform call fails without a code", At::Call, {}},
    {"call, unplugged and back", At::Call, {.action = Action::Unplug, .returnMs = 500}},
    {"call, unplugged for good", At::Call, {.action = Action::Unplug}, true},
    {"call, power lost", At::Call, {.action = Action::PowerLoss, .returnMs = 500}},
    {"out of memory once", At::Allocation, {}, true},
    {"out of memory from then on", At::AllAllocationsFrom, {}, true}};

const Start kFlashStart = {"flash code", ""};
const Start kSameNumbersStart = {"same numbers", R"(, "rom": {"pid": "0x0818"})", false, "by_id"};

namespace {

constexpr int kMostComplaints = 5;

virtualhub::Scenario Machine(const Start& start) {
  return virtualhub::ReadScenario(std::string(R"({"instance_numbers": ")") + start.numbers + R"(",
      "devices": [{"name": "hub", "port": "3.1", "bank_size": 65536,
       "i2c": [{"kind": "eeprom", "address": "0xA0", "size": 32768, "address_bytes": 2}])" +
                                  start.members +
                                  R"(}, {"name": "keyboard", "kind": "other", "port": "5"}]})");
}

bool IsBusAction(const Fault& fault) {
  return fault.action == Action::Unplug || fault.action == Action::PowerLoss;
}

/// The hub stays away until it is plugged.
bool IsForGood(const Fault& fault) {
  return fault.action == Action::NeverReturn || (IsBusAction(fault) && !fault.returnMs);
}

}  // namespace

bool ComesBackAsItWas(const Fault& fault) {
  const bool comesBack = IsBusAction(fault) && fault.returnMs && fault.port.empty();
  return comesBack || fault.action == Action::Hold;
}

bool IsLie(const FaultKind& kind, std::uint16_t) {
  const Action action = kind.fault.action;
  return (action >= Action::AnswerZeros && action <= Action::LoseWrite) ||
         (kind.at == At::Input && action == Action::Fail && kind.fault.code == 0);
}

FaultSweep::FaultSweep() {
  CMsg::Instance().ClearResponders();
  CMsg::Instance().AddResponder(&m_Listener);
}

FaultSweep::~FaultSweep() { CMsg::Instance().RemoveResponder(&m_Listener); }

void* FaultSweep::OpenHub() const {
  HidDevRecord* list = nullptr;
  std::uint32_t count = 0;
  QZ_ListAllHidDev(&list, &count);
  QZ_FreeDevList(list);
  return QZ_OpenHid(machine->HidInstance("hub"));
}

bool FaultSweep::RunsImage() const {
  virtualhub::Hub& hub = machine->hub("hub");
  const auto contents = hub.bank(hub.activeBank()).contents();
  return hub.code() == virtualhub::Code::Flash &&
         std::equal(image.begin(), image.end(), contents.begin());
}

bool FaultSweep::Update(void* handle) const {
  return QZ_UpdateDev(handle, file.path(), OnProgress) == 1;
}

void FaultSweep::Sweep(const Start& start, const Job& job, const FaultKind& kind) {
  m_Scenario = Machine(start);
  m_Scenario.record = true;
  machine = &virtualhub::InstallMachine(m_Scenario);
  const std::vector<Place> places = FindPlaces(job, kind);
  m_Scenario.record = false;
  m_Outcomes = {};
  for (const Place& place : places) Inject(start, job, kind, place);
  const Outcomes& all = m_Outcomes;
  if (all.tried == 0) return;
  std::printf("fault sweep: %s|%s|%s|%d|%d|%d|%d|%d|%d\n", job.name, start.name, kind.name,
              all.tried, all.done, all.wrong, all.failed, all.replugged, all.lost);
  EXPECT_EQ(0, all.lost);
}

/// Does the job without faults; the places where the kind can strike it.
std::vector<FaultSweep::Place> FaultSweep::FindPlaces(const Job& job, const FaultKind& kind) {
  void* const handle = job.opens == Job::Opens::Itself ? nullptr : OpenHub();
  const auto keyboardHid = machine->HidInstance("keyboard");
  const auto keyboardUsb = machine->UsbInstance("keyboard");
  const bool countsMemory = kind.at == At::Allocation || kind.at == At::AllAllocationsFrom;
  if (countsMemory) machine->recorder().Stop();  // it uses memory, too
  machine->recorder().Clear();
  MakeMemoryScarce(0, 0);
  const bool isReported = job.run(handle);
  const std::uint64_t allocations = EndScarcity();
  EXPECT_TRUE(isReported);
  EXPECT_TRUE(job.isDone());

  std::vector<Place> places;
  std::map<std::optional<virtualhub::Service>, std::uint32_t> seen;
  std::uint16_t key = 0;
  const auto add = [&](bool isWanted, Fault::On on,
                       std::optional<virtualhub::Service> service = {}) {
    if (!isWanted) return;
    places.push_back({kind.fault, 0, service ? std::uint16_t{0} : key});
    Fault& fault = places.back().fault;
    fault.on = on;
    fault.service = service;
    fault.nth = ++seen[service];
    if (IsBusAction(fault)) fault.device = "hub";
  };
  for (const Record& record : machine->recorder().all()) {
    const bool isOutput = record.kind == Record::Kind::Output;
    const bool isInput = record.kind == Record::Kind::Input;
    if (record.kind == Record::Kind::Request) {
      key = record.key();
      const bool isReset = key == 0x4000 || key == 0x40E9;
      add(kind.at == At::Reset && isReset, Fault::On::Reset);
    }
    add(kind.at == At::Output && isOutput, Fault::On::Output);
    add(kind.at == At::Input && isInput, Fault::On::Input);
    add(kind.at == At::Exchange && (isOutput || isInput), Fault::On::Exchange);
    const bool isOfKeyboard = record.instance == keyboardHid || record.instance == keyboardUsb;
    if (record.kind == Record::Kind::Call) {
      add(kind.at == At::Call && !(isOfKeyboard && IsBusAction(kind.fault)), Fault::On::Call,
          record.service);
    }
  }
  if (countsMemory) {
    for (std::uint64_t i = 1; i <= allocations; ++i) places.push_back({{}, i, 0});
  }
  QZ_CloseDev(handle);
  return places;
}

void FaultSweep::Inject(const Start& start, const Job& job, const FaultKind& kind,
                        const Place& place) {
  machine = &virtualhub::InstallMachine(m_Scenario);
  void* const handle = job.opens == Job::Opens::Itself ? nullptr : OpenHub();
  m_Listener.failures = 0;
  s_progress = 0;
  const std::uint64_t exchanges = machine->exchanges();
  const bool isReported = RunStruck(job, kind, place, handle);
  ++m_Outcomes.tried;
  if (!isReported) {
    ++m_Outcomes.failed;
    Check(s_progress == 0, "progress is back at 0", place);
    Check(m_Listener.failures > 0 || job.opens == Job::Opens::ForFlow,
          "the log reports the failure", place);
  } else if (job.isDone()) {
    ++m_Outcomes.done;
  } else {
    ++m_Outcomes.wrong;
    Check(job.mayLie(kind, place.key), "what is reported as done is done", place);
  }
  // Out of memory before its first request, a job may leave the device as it was.
  const bool closes = job.opens == Job::Opens::AndCloses || job.opens == Job::Opens::Itself;
  if (closes && (place.allocation == 0 || machine->exchanges() != exchanges)) {
    Check(Handles() == kNoHandles, "nothing is left open", place);
  }
  s_progress = -1;
  CMsg::Instance().Progress(1);
  Check(s_progress == -1, "no receiver is left", place);
  machine->ClearFaults();
  machine->SleepMs(2000);
  if (start.isDual) {
    Check(machine->hub("hub").code() == virtualhub::Code::Flash, "the firmware runs", place);
  }
  QZ_CloseDev(handle);
  Check(Handles() == kNoHandles, "closing leaves nothing open", place);
  Recover(kind, place);
}

bool FaultSweep::RunStruck(const Job& job, const FaultKind& kind, const Place& place,
                           void* handle) {
  if (place.allocation == 0) {
    machine->AddFault(place.fault);
    return job.run(handle);
  }
  const std::uint64_t last = kind.at == At::Allocation ? place.allocation : UINT64_MAX;
  MakeMemoryScarce(place.allocation, last);
  const std::uint64_t exchanges = machine->exchanges();
  bool isReported = false, isThrown = false;
  try {
    isReported = job.run(handle);
  } catch (const std::bad_alloc&) {  // from a job that is not an export
    isThrown = true;
  }
  Check(EndScarcity() >= place.allocation, "the fault strikes", place);
  Check(!isThrown || Handles() == kNoHandles || machine->exchanges() == exchanges,
        "throwing leaves nothing open", place);
  return isReported;
}

/// Brings the hub back and updates it as a host does that has just been started.
void FaultSweep::Recover(const FaultKind& kind, const Place& place) {
  if (machine->HidInstance("hub") == 0) {
    ++m_Outcomes.replugged;
    Check(IsForGood(kind.fault), "the hub comes back by itself", place);
    machine->Plug("hub");
  }
  void* const handle = OpenHub();
  const bool isUpdated = handle != nullptr && Update(handle) && RunsImage();
  QZ_CloseDev(handle);
  if (!isUpdated) ++m_Outcomes.lost;
  Check(isUpdated, "it can be updated", place);
  Check(Handles() == kNoHandles, "that leaves nothing open", place);
}

void FaultSweep::Check(bool isMet, const char* claim, const Place& place) {
  if (isMet || ++m_nComplaints > kMostComplaints) return;
  ADD_FAILURE() << "not so: " << claim << ", with the fault at "
                << (place.fault.service ? NameOf(*place.fault.service) : "an event") << ' '
                << place.fault.nth << ", allocation " << place.allocation << ", request "
                << std::hex << place.key;
}

}  // namespace qzhid::test
