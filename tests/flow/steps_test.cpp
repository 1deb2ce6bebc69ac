// Every job's steps in order, and what follows when one of them fails.
#include <functional>
#include <regex>

#include "device/hid_dev.h"
#include "discovery/node_matchers.h"
#include "flow/universal_flow.h"
#include "support/layer_test.h"
#include "virtualhub/hub/image.h"

namespace qzhid::test {
namespace {

using Flow = CUniversalFlow;

/// The calls of a name that fail: from the nth on, `count` of them, 0 for all.
struct Failing {
  std::string call = {};
  int nth = 1, count = 1;
};

/// What surrounds a flow. The hub changes its state as a real one does, unless a call is to fail.
/// `steps` is what happens, each step with ", " behind it: calls by name, log lines as "(level
/// text)" and prints as "<level text>" with '$' for a line end, progress as "P10".
class Script final : public IDev, public IDevFinder, public IGpioDriver, public SilentReceiver {
 public:
  Script() {
    CMsg::Instance().AddResponder(this);
    SetFwBuffer(virtualhub::BuildImage({}, virtualhub::kIdentityEnd));
    SetFlag(7);
  }
  ~Script() override { CMsg::Instance().RemoveResponder(this); }

  void OnLog(const char* line, int level) override {
    const std::string rest = std::string(line).substr(std::string(line).find("]  ") + 3);
    EXPECT_EQ(tag, rest.substr(0, rest.find(", ")));
    Add("(" + std::to_string(level) + " " + rest.substr(rest.find(", ") + 2) + ")");
  }
  void OnPrint(const char* text, int level) override {
    Add("<" + std::to_string(level) + " " + text + ">");
  }
  void OnProgress(int value) override { Add("P" + std::to_string(value)); }

  CState* GetState() override { return GetStateById(state); }
  CState* GetStateById(int id) override { return m_States[id].get(); }
  bool JudgeCodeMode(IDev*) override {
    const bool isDone = Call("Judge");
    if (isDone && state == kStateUnknown) state = runs;
    return isDone;
  }
  bool Reset2Rom() override {
    return Call("ToRom") && (isDualBank || state == kStateRom || Reset(kStateRom));
  }
  bool ForceReset2Rom() override { return Call("ForceRom") && Reset(kStateRom); }
  bool Reset2Flash() override { return Call("ToFlash") && Reset(kStateFlash); }
  bool DevErase() override { return Call("Erase"); }
  bool WriteFlash() override { return Call("Write"); }
  bool CheckFlash() override { return Call("Check"); }
  bool DevReadVersion(std::uint16_t* version) override { return Call("Read", *version = 0x0210); }
  bool DveGetICStatus(std::uint8_t* status) override { return Call("Read", *status = 0x2E); }
  bool UnInit(std::uint8_t flag) override { return Call("UnInit", flag); }
  bool SetReconnectOption(std::uint8_t option) override { return Call("Option", option); }
  std::int32_t I2CConfigImpl(std::uint8_t slave, std::uint8_t len, std::uint8_t speed) override {
    return Call("I2C", slave, len, speed) ? 0 : 5;
  }
  bool SetGpio(std::uint8_t num, std::uint8_t level, std::uint8_t restore) override {
    return Call("Gpio", num, level, restore);
  }
  bool WaitDevConnect(IDev*, int timeout) override {
    virtualhub::CurrentMachine().clock().SleepUs(1500000);
    const bool isThere = Call("Connect", timeout);
    if (isThere && state == kStateOffline) state = kStateUnknown;
    return isThere;
  }
  bool WaitDevUnconnect(IDev*, int timeout) override {
    const bool isGone = Call("Leave", timeout);
    if (isGone) state = kStateOffline;
    return isGone;
  }
  int DummyRemove(IDev*) override {
    if (state == kStateWait) state = kStateOffline;
    return Call("Remove") ? 1 : 0;
  }

  bool SwitchOn() { return Call("SwitchOn") && switchFailures-- <= 0; }

  /// A call with its arguments behind the name; false when it is to fail.
  template <class... Arguments>
  bool Call(std::string name, Arguments... arguments) {
    ((name += " " + std::to_string(arguments)), ...);
    Add(name);
    if (name != failing.call) return true;
    ++m_nSeen;
    return m_nSeen < failing.nth || (failing.count != 0 && m_nSeen >= failing.nth + failing.count);
  }

  std::string steps, tag;
  Failing failing;
  int state = kStateOffline, runs = kStateFlash, switchFailures = 0;
  bool isDualBank = false;

 private:
  void Add(std::string step) {
    std::replace(step.begin(), step.end(), '\n', '$');
    steps += step + ", ";
  }
  bool Reset(int code) {
    if (state != kStateUnknown) state = kStateWait;
    runs = code;
    return true;
  }
  int m_nSeen = 0;
  CHidDev m_Owner{NodeMatchers()};
  StateTable m_States = MakeStates(m_Owner);
};

// The parts that the jobs have in common, and the jobs when nothing fails.
const std::string kJudged = "P0, Connect 20, Judge, P10, ";
const std::string kToRom = "ToRom, (0 reset to rom success$), P20, ";
const std::string kBack = "Leave 10, Connect 20, ";
const std::string kErase = "Erase, (0 erase flash success$), ";
const std::string kProgram =
    "P30, Write, (0 write flash success$), P70, Check, (0 check flash success$), P90, ";
const std::string kWritten = kJudged + kToRom + kBack + "Judge, " + kErase + kProgram;
const std::string kToFlash = "ToFlash, (0 reset to flash success$), ";
const std::string kThere = "(0 success to connect dev after reset$), ";
const std::string kFinish = "UnInit 7, Remove, ";
const std::string kUninit = "UnInit 7, (0 uninit dev success$), P100, Remove, ";
const std::string kFailed = kFinish + "P0, (1 Update Fw Fail$), ";
std::string Success(long seconds) {
  return "(1 Update Fw Success!spend time is " + std::to_string(seconds) + " Sec$), ";
}

Script* s_pScript = nullptr;  // of the job that runs
std::uint16_t s_nVersion = 0;
std::uint8_t s_byStatus = 0;

struct Job {
  std::string name;
  bool (*run)(Flow& flow);
  std::string steps;
};
const Job kUpdate = {"DevUpdate", [](Flow& flow) { return flow.DevUpdate(); },
                     kWritten + kToFlash + kBack + kThere + "P100, " + kFinish + Success(4)};
const Job kReconn = {"DevUpdateReconn", [](Flow& flow) { return flow.DevUpdateReconn(9); },
                     kWritten + "Option 9, (3 fail to set tpc reconnect$), " + kToFlash + kBack +
                         kUninit + Success(4)};
const Job kSwitchOn = {
    "DevUpdateSwitchOnBBafterReset",
    [](Flow& flow) {
      return flow.DevUpdateSwitchOnBBafterReset([] { return s_pScript->SwitchOn(); });
    },
    kWritten + kToFlash + kBack + "(1 Connect try:0$), " + kUninit + Success(6)};
const Job kReset = {"ResetDeviceonly", [](Flow& flow) { return flow.ResetDeviceonly(); },
                    "Connect 20, Judge, ToFlash, (1 success to reset to flash$), " + kFinish +
                        "(1 Reset Device Success$), "};
const Job kVersion = {"DevReadVersion", [](Flow& flow) { return flow.DevReadVersion(&s_nVersion); },
                      "Connect 20, Judge, Read 528, " + kFinish};
const Job kVersionEx = {"DevReadVersionEx",
                        [](Flow& flow) { return flow.DevReadVersionEx(&s_nVersion, 7); },
                        "Connect 7, Judge, Read 528, " + kFinish};
const Job kStatus = {"DveGetICStatus", [](Flow& flow) { return flow.DveGetICStatus(&s_byStatus); },
                     "Connect 20, Judge, Read 46, " + kFinish};
const Job kEraseJob = {"DevErase", [](Flow& flow) { return flow.DevErase(); },
                       "P0, Connect 20, P30, Judge, ForceRom, (0 force reset to rom success$), " +
                           kBack + "Judge, Erase, P100, Remove, <1 Erase flash success$>, P0, "};
const Job* const kUpdates[] = {&kUpdate, &kReconn, &kSwitchOn};

class StepsTest : public LayerTest {
 protected:
  /// Runs a job on a fresh hub and leaves its steps.
  bool Run(const Job& job, const Failing& failing = {}) {
    Script script;
    script.tag = "CUniversalFlow::" + job.name;
    script.failing = failing;
    if (prepareHub) prepareHub(script);
    Flow flow(script, script, hasGpio ? &script : nullptr);
    if (prepareFlow) prepareFlow(flow);
    s_pScript = &script;
    ClearRecords();
    const bool result = job.run(flow);
    s_pScript = nullptr;
    steps = script.steps;
    return result;
  }
  /// Runs a job that is to succeed with those steps.
  void Expect(const std::string& expected, const Job& job, const Failing& failing = {}) {
    SCOPED_TRACE(job.name + " " + failing.call);
    EXPECT_TRUE(Run(job, failing));
    EXPECT_EQ(expected, steps);
  }

  std::function<void(Script&)> prepareHub;
  std::function<void(Flow&)> prepareFlow;
  bool hasGpio = true;
  std::string steps;
};

/// The steps up to and with the nth call of that name.
std::string UpTo(const std::string& all, const std::string& call, int nth) {
  std::size_t end = 0;
  for (; nth > 0; --nth) end = all.find(call + ", ", end) + call.size() + 2;
  return all.substr(0, end);
}

TEST_F(StepsTest, AFailedStepIsToldOnceAndEndsTheJob) {
  struct Case {
    const Job* job;
    std::string call;
    int nth;
    std::string rest;  // behind the failed call
    bool result = false;
  };
  const std::string notFlash = "(3 fail to reset to flash$), ";
  const std::string notJudged = "(3 Judge Code Mode Fail$), ";
  const std::string notReset = kFinish + "(1 Reset Device Fail$), ";
  const std::string notErased = "<0 Erase flash fail$>, P0, ";
  std::vector<Case> cases = {
      {&kUpdate, "Connect 20", 3, "(3 fail to connect dev after reset$), " + kFailed},
      {&kReconn, "Connect 20", 3, kFailed},
      {&kReconn, "UnInit 7", 1, "(3 fail to uninit dev$), " + kFailed},
      {&kSwitchOn, "UnInit 7", 1, "(3 fail to uninit dev$), " + kFailed},
      {&kReset, "Connect 20", 1, notReset},
      {&kReset, "Judge", 1, notJudged + notReset},
      {&kReset, "ToFlash", 1, notFlash + notReset},
      {&kVersion, "Connect 20", 1, ""},
      {&kVersion, "Read 528", 1, "(3 Read Version is Fail$), " + kFinish},
      {&kVersion, "UnInit 7", 1, "(3 fail to uninit dev$), Remove, "},
      {&kEraseJob, "Connect 20", 1, notErased},
      {&kEraseJob, "ForceRom", 1, "(3 fail to force reset to rom$), " + notErased},
      {&kEraseJob, "Erase", 1, "P100, Remove, " + notErased},
      // A hub that got lost is shown as erased.
      {&kEraseJob, "Leave 10", 1, "<1 Erase flash success$>, P0, ", true},
      {&kEraseJob, "Connect 20", 2, "<1 Erase flash success$>, P0, ", true}};
  for (const Job* job : kUpdates) {
    cases.push_back({job, "Connect 20", 1, kFailed});
    cases.push_back({job, "Judge", 1, notJudged + kFailed});
    cases.push_back({job, "ToRom", 1, "(3 fail to reset to rom$), " + kFailed});
    cases.push_back({job, "Connect 20", 2, kFailed});
    cases.push_back({job, "Erase", 1, "(3 fail to erase flash$), " + kFailed});
    cases.push_back({job, "Write", 1, "(3 $fail to write flash$), " + kFailed});
    cases.push_back({job, "Check", 1, "(3 $fail to check flash$), " + kFailed});
    cases.push_back({job, "ToFlash", 1, notFlash + kFailed});
  }
  for (const Case& c : cases) {
    SCOPED_TRACE(c.job->name + ": " + c.call + " " + std::to_string(c.nth));
    EXPECT_EQ(c.result, Run(*c.job, {c.call, c.nth}));
    EXPECT_EQ(UpTo(c.job->steps, c.call, c.nth) + c.rest, steps);
  }
}

TEST_F(StepsTest, AJobDoesItsStepsInOrderAndSomeFailuresDoNotEndIt) {
  const Job all[] = {kUpdate, kReconn, kSwitchOn, kReset, kVersion, kVersionEx, kStatus, kEraseJob};
  for (const Job& job : all) Expect(job.steps, job);
  for (const char* call : {"UnInit 7", "Remove"}) Expect(kUpdate.steps, kUpdate, {call});
  Expect(kReconn.steps, kReconn, {"Option 9"});
  Expect(kVersion.steps, kVersion, {"Judge"});
  const std::regex leave("Leave 10, ");
  for (const Job* job : kUpdates) {  // a hub that will not leave is taken for gone
    Expect(std::regex_replace(job->steps, leave, "Leave 10, Remove, "), *job, {"Leave 10", 1, 0});
  }
}

TEST_F(StepsTest, OnlyAHubInItsRomCodeIsErasedAndWithoutResetItStaysThere) {
  const std::string end = "P100, " + kFinish + Success(3), back = kToFlash + kBack + kThere + end;
  prepareHub = [](Script& hub) { hub.runs = kStateRom; };
  Expect(kJudged + kToRom + kErase + kProgram + back, kUpdate);
  prepareHub = [](Script& hub) { hub.isDualBank = true; };
  Expect(kJudged + kToRom + kProgram + back, kUpdate);
  // Nor one that came back and could not be judged; its state does not await a reset either.
  prepareHub = nullptr;
  Expect(kJudged + kToRom + kBack + "Judge, " + kProgram + kToFlash + end, kUpdate, {"Judge", 2});

  prepareFlow = [](Flow& flow) { flow.SetResetToFlash(false); };
  Expect(kWritten + end, kUpdate);
  for (const Job* job : {&kReconn, &kSwitchOn}) Expect(job->steps, *job);  // these do not ask
}

TEST_F(StepsTest, WithoutImageNothingIsResetOrErased) {
  prepareHub = [](Script& hub) { hub.SetFwBuffer({}); };
  for (const Job* job : kUpdates) {
    EXPECT_FALSE(Run(*job));
    EXPECT_EQ(kJudged + "(3 $fail to write flash$), " + kFailed, steps);
  }
  prepareHub = [](Script& hub) { hub.SetFwBuffer({0xFF}); };
  for (const Job* job : kUpdates) Expect(job->steps, *job);  // any byte is an image
}

TEST_F(StepsTest, BoardStepsAreTakenWhereTheJobHasThem) {
  prepareFlow = [](Flow& flow) {
    flow.SetGpioPara(1, 5, 1);
    flow.SetI2CSpeedPara(1, 0x103, 0x2C);
  };
  const std::string set = "Gpio 5 1 0, ", restored = "Gpio 5 1 1, ";
  const std::string back = "Leave 10, " + set + "Connect 20, ";
  const std::string speed = "I2C 44 0 3, (3 Write I2C Speed$), ";
  Expect("P0, " + set + "Connect 20, Judge, P10, " + kToRom + back + "Judge, " + kErase + "P30, " +
             speed + kProgram.substr(5) + kToFlash + back + kThere + "P100, " + kFinish +
             Success(4) + restored,
         kUpdate);
  EXPECT_FALSE(Run(kUpdate, {"Connect 20"}));
  EXPECT_EQ("P0, " + set + "Connect 20, " + kFailed + restored, steps);
  Expect(set + "Connect 20, Judge, " + speed + "Read 528, UnInit 7, " + restored + "Remove, ",
         kVersion);
  EXPECT_FALSE(Run(kVersion, {"Connect 20"}));
  EXPECT_EQ(set + "Connect 20, ", steps);
  for (const Job* job : {&kReconn, &kSwitchOn, &kReset, &kVersionEx, &kStatus, &kEraseJob}) {
    Expect(job->steps, *job);
  }

  // Those that fail are told and passed over.
  const std::string notSet = "Set GPIO 5 1 Fail\n", written = "Write I2C Speed\n";
  const std::string notAgain = "Set GPIO 5 1 after pd reset Fail\n";
  const std::string notRestored = "Reset GPIO Fail\n",
                    notAny = notSet + notSet + written + notAgain;
  for (const auto& [call, failures] :
       {std::pair<std::string, std::string>{"Gpio 5 1 0", notAny},
        {"Gpio 5 1 1", written + notRestored},
        {"no driver", notAny + notRestored},
        {"I2C 44 0 3", written + "Set I2C Speed Fail, Slave Addr:2c, Speed:259\n"}}) {
    SCOPED_TRACE(call);
    hasGpio = call != "no driver";
    EXPECT_TRUE(Run(kUpdate, {call, 1, 0}));
    std::string lines;
    for (const LogLine& line : Failures()) lines += line.text;
    EXPECT_EQ(failures, lines);
  }
}

TEST_F(StepsTest, ABoardWithoutPowerIsTriedFourTimesAndSwitchedOnUpToTenTimes) {
  // The connect waits after the reset and the times of switching on that fail; then the seconds of
  // the job, with 2 behind each try, 5 before the switch and 1 behind each time that it fails.
  for (const auto& [waits, switches, seconds] :
       {std::tuple{0, 0, 6}, {3, 0, 17}, {4, 0, 23}, {4, 9, 32}, {4, 10, 0}, {5, 0, 0}}) {
    SCOPED_TRACE(std::to_string(waits) + " " + std::to_string(switches));
    std::string expected = kWritten + kToFlash + "Leave 10, ";
    for (int attempt = 0; attempt <= std::min(waits, 3); ++attempt) {
      expected += "Connect 20, (1 Connect try:" + std::to_string(attempt) + "$), ";
    }
    for (int i = 0; i < switches; ++i) expected += "SwitchOn, (1 switch on BB failed$), ";
    if (waits > 3 && switches < 10) expected += "SwitchOn, (1 switch on BB success$), Connect 20, ";
    prepareHub = [count = switches](Script& hub) { hub.switchFailures = count; };
    EXPECT_EQ(seconds > 0, Run(kSwitchOn, {waits > 0 ? "Connect 20" : "", 3, waits}));
    EXPECT_EQ(expected + (seconds > 0 ? kUninit + Success(seconds) : kFailed), steps);
  }
}

}  // namespace
}  // namespace qzhid::test
