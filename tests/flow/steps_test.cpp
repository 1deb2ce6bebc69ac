// Every job's steps in order, and what follows when one of them fails or throws.
#include <algorithm>
#include <new>

#include "device/hid_dev.h"
#include "device/states.h"
#include "discovery/hid_find.h"
#include "discovery/node_matchers.h"
#include "flow/gpio_driver.h"
#include "flow/universal_flow.h"
#include "support/layer_test.h"
#include "virtualhub/hub/image.h"

namespace qzhid::test {
namespace {

using Flow = CUniversalFlow;
using Lines = std::vector<std::string>;
using ::testing::ElementsAreArray;

Lines operator+(Lines lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
  return lines;
}

class Script;
Script* s_pScript = nullptr;  // of the job that runs
std::uint16_t s_nVersion = 0;
std::uint8_t s_byStatus[20];

/// What surrounds a flow, and lists what happens: "Write" or "Connect 20" for a call with its
/// arguments, "progress 10", and "log 3: text" or "print 1: text". The hub changes
/// its state as a real one does, unless a call is to fail.
class Script final : public IDev, public IDevFinder, public IGpioDriver, public SilentReceiver {
 public:
  Script() {
    s_pScript = this;
    CMsg::Instance().AddResponder(this);
    SetFwBuffer({0xFF});  // any byte is an image
    SetFlag(7);
  }
  ~Script() override {
    s_pScript = nullptr;
    CMsg::Instance().RemoveResponder(this);
  }

  void OnLog(const char* raw, int level) override {
    const LogLine line = ParseLogLine(raw, level);
    EXPECT_EQ(tag, line.tag);
    Add("log", level, line.text);
  }
  void OnPrint(const char* line, int level) override { Add("print", level, line); }
  void OnProgress(int value) override { lines.push_back("progress " + std::to_string(value)); }

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
  bool DevReadVersion(std::uint16_t* version) override {
    return Call("Read", version - &s_nVersion);
  }
  bool DveGetICStatus(std::uint8_t* status) override { return Call("Read", status - s_byStatus); }
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
    if (!Call("Connect", timeout) || (++m_nConnects > 2 && lateConnects-- > 0)) return false;
    if (state == kStateOffline) state = kStateUnknown;
    return true;
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

  Lines lines;
  std::string tag;
  std::size_t failing = 0;  // the number of the call that fails, or throws
  bool throws = false;
  int state = kStateOffline, runs = kStateFlash;
  int lateConnects = 0;  // how many waits fail, from the third on
  int switchFailures = 0;
  bool isDualBank = false;

 private:
  /// Returns false when the call is to fail.
  template <class... Arguments>
  bool Call(const std::string& name, Arguments... arguments) {
    lines.push_back(name);
    ((lines.back() += " " + std::to_string(arguments)), ...);
    if (++m_nCalls != failing) return true;
    if (throws) throw std::bad_alloc();
    return false;
  }
  void Add(const std::string& kind, int level, const std::string& text) {
    EXPECT_EQ('\n', text.back()) << text;
    lines.push_back(kind + " " + std::to_string(level) + ": " + text.substr(0, text.size() - 1));
  }
  bool Reset(int code) {
    if (state != kStateUnknown) state = kStateWait;
    runs = code;
    return true;
  }

  std::size_t m_nCalls = 0;
  int m_nConnects = 0;
  CHidDev m_Owner{NodeMatchers()};
  StateTable m_States = MakeStates(m_Owner);
};

/// A step of a job.
struct Step {
  enum After { kEnds, kGoesOn, kHasOwnTest };

  std::string call;
  Lines done;    ///< what happens after it
  Lines failed;  ///< what happens instead when it fails, or after `done` when the job goes on
  After after = kEnds;
};
using Steps = std::vector<Step>;

Steps operator+(Steps steps, const Steps& more) {
  steps.insert(steps.end(), more.begin(), more.end());
  return steps;
}

struct Job {
  std::string name;
  bool (*run)(Flow&);
  Lines begin;
  Steps steps;
  Lines thrown;  ///< its end when a step throws

  /// What happens from that step on when nothing fails.
  Lines All(std::size_t from = 0) const {
    Lines lines = from == 0 ? begin : Lines();
    for (; from < steps.size(); ++from) lines = lines + Lines{steps[from].call} + steps[from].done;
    return lines + Lines{"true"};
  }
  Job WithoutBoard() const {
    Job job = *this;
    std::erase_if(job.steps, [](const Step& step) { return step.call.find_first_of("GI") == 0; });
    return job;
  }
};

const Step kSpeed = {"I2C 44 0 3",
                     {"log 3: Write I2C Speed"},
                     {"log 3: Set I2C Speed Fail, Slave Addr:2c, Speed:259"},
                     Step::kGoesOn};
const Step kOff = {"Gpio 5 1 0", {}, {"log 3: Set GPIO 5 1 Fail"}, Step::kGoesOn};
const Step kRestored = {"Gpio 5 1 1", {}, {"log 3: Reset GPIO Fail"}, Step::kGoesOn};
const Step kGone = {"Leave 10", {}, {"Remove"}, Step::kGoesOn};

/// The steps up to the check of the flash, in a job with that end.
Steps Written(const Lines& end) {
  return {
      kOff,
      {"Connect 20", {}, end},
      {"Judge", {"progress 10"}, Lines{"log 3: Judge Code Mode Fail"} + end},
      {"ToRom",
       {"log 0: reset to rom success", "progress 20"},
       Lines{"log 3: fail to reset to rom"} + end},
      kGone,
      kOff,
      {"Connect 20", {}, end},
      {"Judge", {}, {}, Step::kHasOwnTest},
      {"Erase",
       {"log 0: erase flash success", "progress 30"},
       Lines{"log 3: fail to erase flash"} + end},
      kSpeed,
      {"Write",
       {"log 0: write flash success", "progress 70"},
       Lines{"log 3: \nfail to write flash"} + end},
      {"Check",
       {"log 0: check flash success", "progress 90"},
       Lines{"log 3: \nfail to check flash"} + end},
  };
}
Steps Started(const Lines& end) {
  return {
      {"ToFlash", {"log 0: reset to flash success"}, Lines{"log 3: fail to reset to flash"} + end},
      kGone};
}
Steps Released(const Lines& end, int seconds) {
  return {
      {"UnInit 7",
       {"log 0: uninit dev success", "progress 100"},
       Lines{"log 3: fail to uninit dev"} + end},
      {"Remove",
       {"log 1: Update Fw Success!spend time is " + std::to_string(seconds) + " Sec"},
       {},
       Step::kGoesOn},
  };
}
Steps Reading(int timeout, const Lines& end) {
  return {{"Connect " + std::to_string(timeout), {}, {"false"}},
          {"Judge", {}, {}, Step::kGoesOn},
          kSpeed,
          {"Read 0", {}, Lines{"log 3: Read Version is Fail", "UnInit 7"} + end},
          {"UnInit 7", {}, Lines{"log 3: fail to uninit dev"} + end},
          kRestored,
          {"Remove", {}, {}, Step::kGoesOn}};
}

const Lines kFinish = {"UnInit 7", "Remove"}, kFalse = {"false"};
const Lines kFailed = kFinish + Lines{"progress 0", "log 1: Update Fw Fail"};
const Lines kFailedOnBoard = kFailed + Lines{"Gpio 5 1 1"};
const Job kUpdate = {
    "DevUpdate",
    [](Flow& flow) { return flow.DevUpdate(); },
    {"progress 0"},
    Written(kFailedOnBoard + kFalse) + Started(kFailedOnBoard + kFalse) +
        Steps{{"Gpio 5 1 0", {}, {"log 3: Set GPIO 5 1 after pd reset Fail"}, Step::kGoesOn},
              {"Connect 20",
               {"log 0: success to connect dev after reset", "progress 100"},
               Lines{"log 3: fail to connect dev after reset"} + kFailedOnBoard + kFalse},
              {"UnInit 7", {}, {}, Step::kGoesOn},
              {"Remove", {"log 1: Update Fw Success!spend time is 4 Sec"}, {}, Step::kGoesOn},
              kRestored},
    kFailedOnBoard};
const Job kReconn =
    Job{"DevUpdateReconn",
        [](Flow& flow) { return flow.DevUpdateReconn(9); },
        {"progress 0"},
        Written(kFailed + kFalse) +
            Steps{{"Option 9", {"log 3: fail to set tpc reconnect"}, {}, Step::kGoesOn}} +
            Started(kFailed + kFalse) + Steps{{"Connect 20", {}, kFailed + kFalse}} +
            Released(kFailed + kFalse, 4),
        kFailed}
        .WithoutBoard();
const Job kSwitchOn =
    Job{"DevUpdateSwitchOnBBafterReset",
        [](Flow& flow) {
          return flow.DevUpdateSwitchOnBBafterReset([] { return s_pScript->SwitchOn(); });
        },
        {"progress 0"},
        Written(kFailed + kFalse) + Started(kFailed + kFalse) +
            Steps{{"Connect 20", {"log 1: Connect try:0"}, {}, Step::kHasOwnTest}} +
            Released(kFailed + kFalse, 6),
        kFailed}
        .WithoutBoard();
const Lines kResetFailed = kFinish + Lines{"log 1: Reset Device Fail", "false"};
const Job kReset = {"ResetDeviceonly",
                    [](Flow& flow) { return flow.ResetDeviceonly(); },
                    {},
                    {{"Connect 20", {}, kResetFailed},
                     {"Judge", {}, Lines{"log 3: Judge Code Mode Fail"} + kResetFailed},
                     {"ToFlash",
                      {"log 1: success to reset to flash"},
                      Lines{"log 3: fail to reset to flash"} + kResetFailed},
                     {"UnInit 7", {}, {}, Step::kGoesOn},
                     {"Remove", {"log 1: Reset Device Success"}, {}, Step::kGoesOn}},
                    kFinish};
const Job kVersion = {"DevReadVersion",
                      [](Flow& flow) { return flow.DevReadVersion(&s_nVersion); },
                      {},
                      Steps{kOff} + Reading(20, {"Gpio 5 1 1", "Remove", "false"}),
                      kFinish + Lines{"Gpio 5 1 1"}};
const Job kVersionEx = Job{"DevReadVersionEx",
                           [](Flow& flow) { return flow.DevReadVersionEx(&s_nVersion, 7); },
                           {},
                           Reading(7, {"Remove", "false"}),
                           kFinish}
                           .WithoutBoard();
const Job kStatus = Job{"DveGetICStatus",
                        [](Flow& flow) { return flow.DveGetICStatus(s_byStatus); },
                        {},
                        Reading(20, {"Remove", "false"}),
                        kFinish}
                        .WithoutBoard();
const Lines kEraseFailed = {"print 0: Erase flash fail", "progress 0", "false"};
const Lines kErased = {"print 1: Erase flash success", "progress 0", "true"};
const Lines kForced = {"log 0: force reset to rom success"};
const Job kErase = {
    "DevErase",
    [](Flow& flow) { return flow.DevErase(); },
    {"progress 0"},
    {{"Connect 20", {"progress 30"}, kEraseFailed},
     {"Judge",
      {},
      Lines{"ForceRom"} + kForced + Lines{"Erase", "progress 100", "Remove"} + kErased},
     {"ForceRom", kForced, Lines{"log 3: fail to force reset to rom"} + kEraseFailed},
     {"Leave 10", {}, kErased},
     {"Connect 20", {}, kErased},
     {"Judge", {}, {}, Step::kGoesOn},
     {"Erase", {"progress 100"}, Lines{"progress 100", "Remove"} + kEraseFailed},
     {"Remove", {"print 1: Erase flash success", "progress 0"}, {}, Step::kGoesOn}},
    kFinish + Lines{"progress 0"}};

class StepsTest : public LayerTest {
 protected:
  /// What happens in a job on a fresh hub, and the result.
  Lines Run(const Job& job, std::size_t failing = 0, bool throws = false) {
    Script script;
    script.tag = "CUniversalFlow::" + job.name;
    script.failing = failing;
    script.throws = throws;
    if (prepareHub) prepareHub(script);
    Flow flow(script, script, hasDriver ? &script : nullptr);
    flow.SetGpioPara(hasBoard, 5, 1);
    flow.SetI2CSpeedPara(hasBoard, 0x103, 0x2C);
    flow.SetResetToFlash(resetsToFlash);
    try {
      const bool isDone = job.run(flow);
      return script.lines + Lines{isDone ? "true" : "false"};
    } catch (const std::bad_alloc&) {
      return script.lines + Lines{"thrown"};
    }
  }
  static Lines::iterator Find(Lines& lines, const std::string& beginning) {
    return std::find_if(lines.begin(), lines.end(), [&beginning](const std::string& line) {
      return line.starts_with(beginning);
    });
  }
  /// A plain update without the lines from one to before another; it takes a second less.
  static Lines Shortened(const std::string& from, const std::string& to) {
    Lines lines = kUpdate.All();
    lines.erase(Find(lines, from), Find(lines, to));
    std::string& success = *Find(lines, "log 1: Update Fw Success");
    success.replace(success.find("4 Sec"), 1, "3");
    return lines;
  }

  std::function<void(Script&)> prepareHub;
  bool hasDriver = true, hasBoard = true, resetsToFlash = true;
};

TEST_F(StepsTest, AJobTakesItsStepsInOrderAndEndsWhenOneFailsOrThrows) {
  for (const Job* job :
       {&kUpdate, &kReconn, &kSwitchOn, &kReset, &kVersion, &kVersionEx, &kStatus, &kErase}) {
    EXPECT_THAT(Run(*job), ElementsAreArray(job->All()));
    Lines before = job->begin;
    for (std::size_t i = 0; i < job->steps.size(); ++i) {
      const Step& step = job->steps[i];
      SCOPED_TRACE(job->name + ", step " + std::to_string(i) + ": " + step.call);
      before.push_back(step.call);
      if (job != &kReset || i < 3) {  // the end of this job is not guarded
        EXPECT_THAT(Run(*job, i + 1, true),
                    ElementsAreArray(before + job->thrown + Lines{"thrown"}));
      }
      if (step.after == Step::kEnds) {
        EXPECT_THAT(Run(*job, i + 1), ElementsAreArray(before + step.failed));
      } else if (step.after == Step::kGoesOn) {
        EXPECT_THAT(Run(*job, i + 1),
                    ElementsAreArray(before + step.done + step.failed + job->All(i + 1)));
      }
      before = before + step.done;
    }
  }
}

TEST_F(StepsTest, OnlyAHubInItsRomCodeIsErased) {
  prepareHub = [](Script& hub) { hub.runs = kStateRom; };
  EXPECT_THAT(Run(kUpdate), ElementsAreArray(Shortened("Leave", "Erase")));
  prepareHub = [](Script& hub) { hub.isDualBank = true; };
  EXPECT_THAT(Run(kUpdate), ElementsAreArray(Shortened("Leave", "progress 30")));
}

TEST_F(StepsTest, AHubThatCannotBeJudgedAfterItsResetIsNeitherErasedNorAwaited) {
  Lines expected = Shortened("Erase", "progress 30");
  const auto started = Find(expected, "log 0: reset to flash success") + 1;
  expected.erase(started, Find(expected, "progress 100"));
  EXPECT_THAT(Run(kUpdate, 8), ElementsAreArray(expected));
}

TEST_F(StepsTest, WithoutTheResetOnlyThePlainUpdateLeavesTheHubInItsRomCode) {
  resetsToFlash = false;
  EXPECT_THAT(Run(kUpdate), ElementsAreArray(Shortened("ToFlash", "progress 100")));
  for (const Job* job : {&kReconn, &kSwitchOn}) {
    EXPECT_THAT(Run(*job), ElementsAreArray(job->All()));
  }
}

TEST_F(StepsTest, WithoutAnImageNothingIsResetOrErased) {
  prepareHub = [](Script& hub) { hub.SetFwBuffer({}); };
  for (const Job* job : {&kUpdate, &kReconn, &kSwitchOn}) {
    Lines expected = job->All();
    expected.erase(Find(expected, "ToRom"), expected.end());
    EXPECT_THAT(Run(*job), ElementsAreArray(expected + Lines{"log 3: \nfail to write flash"} +
                                            job->thrown + kFalse));
  }
}

TEST_F(StepsTest, AnImageThatCannotBeLoadedLeavesTheDeviceWithoutOne) {
  CHidDev dev{NodeMatchers()};
  CHidFind finder;
  Flow flow(finder, dev);
  const Bytes image = virtualhub::BuildImage({.version = 0x0210}, 0x7FA8);
  EXPECT_TRUE(flow.InitFwFinder(TempFile(image).path()));
  EXPECT_EQ(image, dev.GetFwBuffer());
  EXPECT_TRUE(flow.DevHidCmd(&s_nVersion, 0));
  EXPECT_EQ(0x0210, s_nVersion);
  EXPECT_FALSE(flow.InitFwFinder(UniquePath("missing").c_str()));
  EXPECT_TRUE(dev.GetFwBuffer().empty());
  EXPECT_EQ(1u, Count({1, "CUniversalFlow::InitFwFinder", "fail to load fw file to buf.\n"}));
}

TEST_F(StepsTest, BoardStepsAreTakenOnRequestAndFailWithoutADriver) {
  for (const Job* job : {&kUpdate, &kVersion}) {
    Lines expected = job->begin;
    for (const Step& step : job->steps) {
      const bool isOfDriver = step.call.starts_with("Gpio");
      expected = expected + (isOfDriver ? step.failed : Lines{step.call} + step.done);
    }
    hasDriver = false;
    EXPECT_THAT(Run(*job), ElementsAreArray(expected + Lines{"true"}));
    hasDriver = true;
    hasBoard = false;
    EXPECT_THAT(Run(*job), ElementsAreArray(job->WithoutBoard().All()));
    hasBoard = true;
  }
}

TEST_F(StepsTest, ABoardWithoutPowerIsTriedFourTimesAndSwitchedOnUpToTenTimes) {
  Lines before = kSwitchOn.All();
  before.erase(Find(before, "log 1: Connect try:0") - 1, before.end());
  // The connect waits after the reset and the times of switching on that fail; then the seconds of
  // the job, with 2 after each try, 5 before the switch and 1 after each time that it fails.
  for (const auto& [waits, switches, seconds] :
       {std::tuple{0, 0, 6}, {3, 0, 17}, {4, 0, 23}, {4, 9, 32}, {4, 10, 0}, {5, 0, 0}}) {
    Lines expected = before;
    for (int attempt = 0; attempt <= std::min(waits, 3); ++attempt) {
      expected = expected + Lines{"Connect 20", "log 1: Connect try:" + std::to_string(attempt)};
    }
    for (int i = 0; i < switches; ++i) {
      expected = expected + Lines{"SwitchOn", "log 1: switch on BB failed"};
    }
    if (waits > 3 && switches < 10) {
      expected = expected + Lines{"SwitchOn", "log 1: switch on BB success", "Connect 20"};
    }
    if (seconds == 0) expected = expected + kSwitchOn.thrown + kFalse;
    for (const Step& step : seconds > 0 ? Released({}, seconds) : Steps()) {
      expected = expected + Lines{step.call} + step.done;
    }
    if (seconds > 0) expected.push_back("true");
    prepareHub = [late = waits, failures = switches](Script& hub) {
      hub.lateConnects = late;
      hub.switchFailures = failures;
    };
    EXPECT_THAT(Run(kSwitchOn), ElementsAreArray(expected));
  }
}

}  // namespace
}  // namespace qzhid::test
