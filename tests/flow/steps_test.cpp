// Every job's steps in order, and what follows when one of them fails.
#include <functional>
#include <numeric>

#include "device/hid_dev.h"
#include "flow/universal_flow.h"
#include "support/proxy_test.h"
#include "virtualhub/image.h"

namespace qzhid::test {
namespace {

using ::testing::Each;

/// What a flow does, in order, each step with ", " behind it: calls of its collaborators by name,
/// log lines as "(level text)" and prints as "<level text>" with '$' for a line end, progress as
/// "P10".
class Trace final : public IResponder {
 public:
  Trace() { CMsg::Instance().AddResponder(this); }
  ~Trace() override { CMsg::Instance().RemoveResponder(this); }
  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;

  void OnLog(const char* line, int level) override {
    const std::string rest = std::string(line).substr(std::string(line).find("]  ") + 3);
    tags.push_back(rest.substr(0, rest.find(", ")));
    Add("(" + std::to_string(level) + " " + rest.substr(rest.find(", ") + 2) + ")");
  }
  void OnPrint(const char* text, int level) override {
    Add("<" + std::to_string(level) + " " + text + ">");
  }
  void OnNotify(const char*, int, int) override {}
  void OnProgress(int value) override { Add("P" + std::to_string(value)); }
  void SetLevel(int) override {}

  /// A call; false when it is to fail.
  bool Call(const std::string& name) {
    Add(name);
    if (name != failing) return true;
    ++m_Seen;
    return m_Seen < nth || (count != 0 && m_Seen >= nth + count);
  }

  std::string steps;
  std::vector<std::string> tags;
  /// The calls of that name that fail: from the nth on, `count` of them, 0 for all.
  std::string failing;
  int nth = 1, count = 1;

 private:
  void Add(std::string step) {
    std::replace(step.begin(), step.end(), '\n', '$');
    steps += step + ", ";
  }
  int m_Seen = 0;
};

/// A hub that changes its state as a real one does, unless a call is to fail.
class ScriptedDev final : public IDev {
 public:
  explicit ScriptedDev(Trace& trace) : m_Trace(trace) {
    SetFwBuffer(virtualhub::BuildImage({}, virtualhub::kIdentityEnd));
    SetFlag(7);
  }
  CState* GetState() override { return GetStateById(state); }
  CState* GetStateById(int id) override { return m_States[id].get(); }
  bool JudgeCodeMode(IDev* dev) override {
    EXPECT_EQ(this, dev);
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
  bool GetBinVersion(std::uint16_t* version, std::uint8_t mode) override {
    return Call("Bin", mode, *version = 0x0302);
  }
  bool UnInit(std::uint8_t flag) override { return Call("UnInit", flag); }
  bool SetReconnectOption(std::uint8_t option) override { return Call("Option", option); }
  std::int32_t I2CConfigImpl(std::uint8_t slave, std::uint8_t len, std::uint8_t speed) override {
    return Call("I2C", slave, len, speed) ? 0 : 5;
  }

  int state = kStateOffline, runs = kStateFlash;
  bool isDualBank = false;

 private:
  template <class... Arguments>
  bool Call(std::string name, Arguments... arguments) {
    ((name += " " + std::to_string(arguments)), ...);
    return m_Trace.Call(name);
  }
  bool Reset(int code) {
    if (state != kStateUnknown) state = kStateWait;
    runs = code;
    return true;
  }
  Trace& m_Trace;
  CHidDev m_Owner;
  StateTable m_States = MakeStates(m_Owner);
};

/// Each wait for the device to connect takes a second and a half.
class ScriptedFind final : public IDevFinder {
 public:
  ScriptedFind(Trace& trace, ScriptedDev& dev) : m_Trace(trace), m_Dev(dev) {}
  bool WaitDevConnect(IDev* dev, int timeout) override {
    EXPECT_EQ(&m_Dev, dev);
    virtualhub::CurrentWorld().clock().SleepUs(1500000);
    const bool isThere = m_Trace.Call("Connect" + std::to_string(timeout));
    if (isThere && m_Dev.state == kStateOffline) m_Dev.state = kStateUnknown;
    return isThere;
  }
  bool WaitDevUnconnect(IDev* dev, int timeout) override {
    EXPECT_EQ(&m_Dev, dev);
    const bool isGone = m_Trace.Call("Leave" + std::to_string(timeout));
    if (isGone) m_Dev.state = kStateOffline;
    return isGone;
  }
  int DummyRemove(IDev* dev) override {
    EXPECT_EQ(&m_Dev, dev);
    if (m_Dev.state == kStateWait) m_Dev.state = kStateOffline;
    return m_Trace.Call("Remove") ? 1 : 0;
  }

 private:
  Trace& m_Trace;
  ScriptedDev& m_Dev;
};

class ScriptedGpio final : public IGpioDriver {
 public:
  explicit ScriptedGpio(Trace& trace) : m_Trace(trace) {}
  bool SetGpio(std::uint8_t num, std::uint8_t level, std::uint8_t restore) override {
    return m_Trace.Call("Gpio " + std::to_string(num) + std::to_string(level) +
                        std::to_string(restore));
  }

 private:
  Trace& m_Trace;
};

// The parts that the jobs have in common, and the jobs when nothing fails.
const std::string kJudged = "P0, Connect20, Judge, P10, ";
const std::string kToRom = "ToRom, (0 reset to rom success$), P20, ";
const std::string kBack = "Leave10, Connect20, ";
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

struct Job {
  const char* tag;
  bool (*run)(CUniversalFlow& flow);
  std::string steps;
};

const Job kUpdate = {"CUniversalFlow::DevUpdate",
                     [](CUniversalFlow& flow) { return flow.DevUpdate(); },
                     kWritten + kToFlash + kBack + kThere + "P100, " + kFinish + Success(4)};
const Job kReconn = {"CUniversalFlow::DevUpdateReconn",
                     [](CUniversalFlow& flow) { return flow.DevUpdateReconn(9); },
                     kWritten + "Option 9, (3 fail to set tpc reconnect$), " + kToFlash + kBack +
                         kUninit + Success(4)};
const Job kSwitchOn = {
    "CUniversalFlow::DevUpdateSwitchOnBBafterReset",
    [](CUniversalFlow& flow) { return flow.DevUpdateSwitchOnBBafterReset(nullptr); },
    kWritten + kToFlash + kBack + "(1 Connect try:0$), " + kUninit + Success(6)};
const Job kReset = {"CUniversalFlow::ResetDeviceonly",
                    [](CUniversalFlow& flow) { return flow.ResetDeviceonly(); },
                    "Connect20, Judge, ToFlash, (1 success to reset to flash$), " + kFinish +
                        "(1 Reset Device Success$), "};
const Job kVersion = {"CUniversalFlow::DevReadVersion",
                      [](CUniversalFlow& flow) {
                        std::uint16_t version = 0;
                        return flow.DevReadVersion(&version) && version == 0x0210;
                      },
                      "Connect20, Judge, Read 528, " + kFinish};
const Job kVersionEx = {"CUniversalFlow::DevReadVersionEx",
                        [](CUniversalFlow& flow) {
                          std::uint16_t version = 0;
                          return flow.DevReadVersionEx(&version, 7) && version == 0x0210;
                        },
                        "Connect7, Judge, Read 528, " + kFinish};
const Job kStatus = {"CUniversalFlow::DveGetICStatus",
                     [](CUniversalFlow& flow) {
                       std::uint8_t status = 0;
                       return flow.DveGetICStatus(&status) && status == 0x2E;
                     },
                     "Connect20, Judge, Read 46, " + kFinish};
const Job kEraseJob = {"CUniversalFlow::DevErase",
                       [](CUniversalFlow& flow) { return flow.DevErase(); },
                       "P0, Connect20, P30, Judge, ForceRom, (0 force reset to rom success$), " +
                           kBack + "Judge, Erase, P100, Remove, <1 Erase flash success$>, P0, "};

class StepsTest : public ProxyTest {
 protected:
  /// Runs a job on a fresh hub and leaves its steps; `failing` and the numbers as in Trace.
  bool Run(const Job& job, const std::string& failing = {}, int nth = 1, int count = 1) {
    Trace trace;
    trace.failing = failing;
    trace.nth = nth;
    trace.count = count;
    ScriptedDev dev(trace);
    if (prepareDev) prepareDev(dev);
    ScriptedFind find(trace, dev);
    ScriptedGpio gpio(trace);
    CUniversalFlow flow(find, dev, hasGpio ? &gpio : nullptr);
    if (prepareFlow) prepareFlow(flow);
    s_pTrace = &trace;
    ClearRecords();
    const bool result = job.run(flow);
    steps = trace.steps;
    EXPECT_THAT(trace.tags, Each(job.tag));
    return result;
  }

  std::function<void(ScriptedDev&)> prepareDev;
  std::function<void(CUniversalFlow&)> prepareFlow;
  bool hasGpio = true;
  std::string steps;
  static Trace* s_pTrace;
};
Trace* StepsTest::s_pTrace = nullptr;

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
    std::string rest;  // what follows the failed call
    bool result = false;
  };
  const std::string notFlash = "(3 fail to reset to flash$), ";
  const std::string notJudged = "(3 Judge Code Mode Fail$), ";
  const std::string notReset = kFinish + "(1 Reset Device Fail$), ";
  const std::string notRead = "(3 Read Version is Fail$), " + kFinish;
  const std::string notErased = "<0 Erase flash fail$>, P0, ";
  std::vector<Case> cases = {
      {&kUpdate, "Connect20", 3, "(3 fail to connect dev after reset$), " + kFailed},
      {&kReconn, "Connect20", 3, kFailed},
      {&kReconn, "UnInit 7", 1, "(3 fail to uninit dev$), " + kFailed},
      {&kSwitchOn, "UnInit 7", 1, "(3 fail to uninit dev$), " + kFailed},
      {&kReset, "Connect20", 1, notReset},
      {&kReset, "Judge", 1, notJudged + notReset},
      {&kReset, "ToFlash", 1, notFlash + notReset},
      {&kVersion, "Connect20", 1, ""},
      {&kVersion, "Read 528", 1, notRead},
      {&kVersion, "UnInit 7", 1, "(3 fail to uninit dev$), Remove, "},
      {&kVersionEx, "Connect7", 1, ""},
      {&kVersionEx, "Read 528", 1, notRead},
      {&kStatus, "Connect20", 1, ""},
      {&kStatus, "Read 46", 1, notRead},
      {&kEraseJob, "Connect20", 1, notErased},
      {&kEraseJob, "ForceRom", 1, "(3 fail to force reset to rom$), " + notErased},
      {&kEraseJob, "Erase", 1, "P100, Remove, " + notErased},
      // A hub that got lost is shown as erased.
      {&kEraseJob, "Leave10", 1, "<1 Erase flash success$>, P0, ", true},
      {&kEraseJob, "Connect20", 2, "<1 Erase flash success$>, P0, ", true},
  };
  for (const Job* job : {&kUpdate, &kReconn, &kSwitchOn}) {
    cases.push_back({job, "Connect20", 1, kFailed});
    cases.push_back({job, "Judge", 1, notJudged + kFailed});
    cases.push_back({job, "ToRom", 1, "(3 fail to reset to rom$), " + kFailed});
    cases.push_back({job, "Connect20", 2, kFailed});
    cases.push_back({job, "Erase", 1, "(3 fail to erase flash$), " + kFailed});
    cases.push_back({job, "Write", 1, "(3 $fail to write flash$), " + kFailed});
    cases.push_back({job, "Check", 1, "(3 $fail to check flash$), " + kFailed});
    cases.push_back({job, "ToFlash", 1, notFlash + kFailed});
  }
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.job->tag) + ": " + c.call + " " + std::to_string(c.nth));
    EXPECT_EQ(c.result, Run(*c.job, c.call, c.nth));
    EXPECT_EQ(UpTo(c.job->steps, c.call, c.nth) + c.rest, steps);
  }
}

TEST_F(StepsTest, AJobDoesItsStepsInOrderAndSomeFailuresChangeNothing) {
  struct Case {
    const Job& job;
    const char* call;
    int nth = 1;
  };
  for (const Case& c :
       {Case{kUpdate, ""}, Case{kReconn, ""}, Case{kSwitchOn, ""}, Case{kReset, ""},
        Case{kVersion, ""}, Case{kVersionEx, ""}, Case{kStatus, ""}, Case{kEraseJob, ""},
        Case{kUpdate, "UnInit 7"}, Case{kUpdate, "Remove"}, Case{kReconn, "Option 9"},
        Case{kReset, "UnInit 7"}, Case{kVersion, "Judge"}, Case{kStatus, "Judge"},
        Case{kEraseJob, "Judge", 2}}) {
    SCOPED_TRACE(std::string(c.job.tag) + " " + c.call);
    EXPECT_TRUE(Run(c.job, c.call, c.nth));
    EXPECT_EQ(c.job.steps, steps);
  }
}

TEST_F(StepsTest, AHubThatWillNotLeaveIsTakenForGone) {
  for (const Job* job : {&kUpdate, &kReconn, &kSwitchOn}) {
    std::string expected = job->steps;
    for (std::size_t at = 0; (at = expected.find(kBack, at)) != std::string::npos; at += 9) {
      expected.insert(at + 9, "Remove, ");
    }
    EXPECT_TRUE(Run(*job, "Leave10", 1, 0));
    EXPECT_EQ(expected, steps);
  }
}

TEST_F(StepsTest, OnlyAHubInItsRomCodeIsErased) {
  const std::string end = kToFlash + kBack + kThere + "P100, " + kFinish + Success(3);
  prepareDev = [](ScriptedDev& dev) { dev.runs = kStateRom; };
  EXPECT_TRUE(Run(kUpdate));
  EXPECT_EQ(kJudged + kToRom + kErase + kProgram + end, steps);
  prepareDev = [](ScriptedDev& dev) { dev.isDualBank = true; };
  EXPECT_TRUE(Run(kUpdate));
  EXPECT_EQ(kJudged + kToRom + kProgram + end, steps);
  // Nor one that came back and could not be judged; its state does not await a reset either.
  prepareDev = nullptr;
  EXPECT_TRUE(Run(kUpdate, "Judge", 2));
  EXPECT_EQ(
      kJudged + kToRom + kBack + "Judge, " + kProgram + kToFlash + "P100, " + kFinish + Success(3),
      steps);
}

TEST_F(StepsTest, WithoutResetTheHubStaysInItsLoader) {
  prepareFlow = [](CUniversalFlow& flow) { flow.SetResetToFlash(false); };
  EXPECT_TRUE(Run(kUpdate));
  EXPECT_EQ(kWritten + "P100, " + kFinish + Success(3), steps);
  for (const Job* job : {&kReconn, &kSwitchOn}) {  // these do not ask
    EXPECT_TRUE(Run(*job));
    EXPECT_EQ(job->steps, steps);
  }
}

TEST_F(StepsTest, WithoutUsableImageNothingIsResetOrErased) {
  for (const std::size_t size : {0u, 100u, 0x7F53u}) {
    prepareDev = [size](ScriptedDev& dev) {
      FwBuffer image = dev.GetFwBuffer();
      image.resize(size);
      dev.SetFwBuffer(image);
    };
    const std::string reason = "(3 Fw image is too short,size:" + std::to_string(size) + "$), ";
    for (const Job* job : {&kUpdate, &kReconn, &kSwitchOn}) {
      EXPECT_FALSE(Run(*job));
      EXPECT_EQ(kJudged + (size == 0 ? "" : reason) + "(3 $fail to write flash$), " + kFailed,
                steps);
    }
  }
}

TEST_F(StepsTest, BoardStepsAreTakenWhereTheJobHasThem) {
  prepareFlow = [](CUniversalFlow& flow) {
    flow.SetGpioPara(1, 5, 1);
    flow.SetI2CSpeedPara(1, 0x103, 0x2C);
  };
  const std::string back = "Leave10, Gpio 510, Connect20, ";
  const std::string speed = "I2C 44 0 3, (3 Write I2C Speed$), ";
  EXPECT_TRUE(Run(kUpdate));
  EXPECT_EQ("P0, Gpio 510, Connect20, Judge, P10, " + kToRom + back + "Judge, " + kErase + "P30, " +
                speed + kProgram.substr(5) + kToFlash + back + kThere + "P100, " + kFinish +
                Success(4) + "Gpio 511, ",
            steps);
  EXPECT_FALSE(Run(kUpdate, "Connect20"));
  EXPECT_EQ("P0, Gpio 510, Connect20, " + kFailed + "Gpio 511, ", steps);
  EXPECT_TRUE(Run(kVersion));
  EXPECT_EQ("Gpio 510, Connect20, Judge, " + speed + "Read 528, UnInit 7, Gpio 511, Remove, ",
            steps);
  EXPECT_FALSE(Run(kVersion, "Connect20"));
  EXPECT_EQ("Gpio 510, Connect20, ", steps);
  for (const Job* job : {&kReconn, &kSwitchOn, &kReset, &kVersionEx, &kStatus, &kEraseJob}) {
    EXPECT_TRUE(Run(*job)) << job->tag;
    EXPECT_EQ(job->steps, steps);
  }
}

TEST_F(StepsTest, BoardStepsThatFailAreToldAndPassedOver) {
  prepareFlow = [](CUniversalFlow& flow) {
    flow.SetGpioPara(1, 5, 1);
    flow.SetI2CSpeedPara(1, 0x103, 0x2C);
  };
  struct Case {
    std::string call;   // "null": there is no driver, so that each of its steps fails
    std::string lines;  // of level 3
  };
  const std::string speed = "(3 Write I2C Speed$), ", reset = "(3 Reset GPIO Fail$), ";
  const std::string set = "(3 Set GPIO 5 1 Fail$), ";
  const std::string setAgain = "(3 Set GPIO 5 1 after pd reset Fail$), ";
  for (const Case& c :
       {Case{"I2C 44 0 3", speed + "(3 Set I2C Speed Fail, Slave Addr:2c, Speed:259$), "},
        Case{"Gpio 510", set + set + speed + setAgain}, Case{"Gpio 511", speed + reset},
        Case{"null", set + set + speed + setAgain + reset}}) {
    SCOPED_TRACE(c.call);
    hasGpio = c.call != "null";
    EXPECT_TRUE(Run(kUpdate, c.call, 1, 0));
    std::string lines;
    for (std::size_t at = 0; (at = steps.find("(3 ", at)) != std::string::npos; ++at) {
      lines += steps.substr(at, steps.find("$), ", at) + 4 - at);
    }
    EXPECT_EQ(c.lines, lines);
  }
}

TEST_F(StepsTest, ABoardWithoutPowerIsTriedFourTimesAndSwitchedOnUpToTenTimes) {
  struct Case {
    int waits;     // connect waits after the reset that fail
    int switches;  // times that the switch fails
    bool result;
  };
  static int s_nSwitches;  // still to fail
  const Job job = {kSwitchOn.tag,
                   [](CUniversalFlow& flow) {
                     return flow.DevUpdateSwitchOnBBafterReset(
                         [] { return s_pTrace->Call("SwitchOn") && s_nSwitches-- <= 0; });
                   },
                   ""};
  for (const Case& c : {Case{0, 0, true}, Case{3, 0, true}, Case{4, 0, true}, Case{4, 9, true},
                        Case{4, 10, false}, Case{5, 0, false}}) {
    SCOPED_TRACE(std::to_string(c.waits) + " " + std::to_string(c.switches));
    std::string expected = kWritten + kToFlash + "Leave10, ";
    std::vector<std::uint32_t> pauses;
    for (int attempt = 0; attempt <= std::min(c.waits, 3); ++attempt) {
      expected += "Connect20, (1 Connect try:" + std::to_string(attempt) + "$), ";
      pauses.push_back(2000);
    }
    if (c.waits > 3) {
      pauses.push_back(5000);
      pauses.resize(pauses.size() + static_cast<std::size_t>(c.switches), 1000);
      for (int i = 0; i < c.switches; ++i) expected += "SwitchOn, (1 switch on BB failed$), ";
      if (c.switches < 10) expected += "SwitchOn, (1 switch on BB success$), Connect20, ";
    }
    const long waits = 3 + std::min(c.waits, 3) + (c.waits > 3 ? 1 : 0);
    const long ms = std::accumulate(pauses.begin(), pauses.end(), waits * 1500);
    s_nSwitches = c.switches;
    EXPECT_EQ(c.result, Run(job, c.waits > 0 ? "Connect20" : "", 3, c.waits));
    EXPECT_EQ(expected + (c.result ? kUninit + Success(ms / 1000) : kFailed), steps);
    EXPECT_EQ(pauses, Pauses());
  }
}

TEST_F(StepsTest, SmallServicesPassTheirArgumentsOn) {
  const Job services = {"none",
                        [](CUniversalFlow& flow) {
                          std::uint16_t version = 0;
                          return flow.WaitConnect(3) && flow.WaitUnconnect(5) &&
                                 flow.WaitUnconnect(15) && flow.DevHidCmd(&version, 1) &&
                                 version == 0x0302;
                        },
                        "Connect3, Leave10, Leave10, Bin 1 770, "};
  EXPECT_TRUE(Run(services));
  EXPECT_EQ(services.steps, steps);
  EXPECT_FALSE(Run(services, "Bin 1 770"));
}

}  // namespace
}  // namespace qzhid::test
