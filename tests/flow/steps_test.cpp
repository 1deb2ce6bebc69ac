// Every job's steps in order, and what follows when one of them fails or throws.
#include <new>
#include <regex>
#include <sstream>

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

class Script;
Script* s_pScript = nullptr;  // of the job that runs
std::uint16_t s_nVersion = 0;
std::uint8_t s_byStatus[20];

/// What surrounds a flow, and writes down what happens, a line each: "Write" or "Connect 20" for a
/// call with its arguments, "progress 10", and "log 3: text" or "print 1: text". The hub changes
/// its state as a real one does, unless a call is to fail.
class Script final : public IDev, public IDevFinder, public IGpioDriver, public SilentReceiver {
 public:
  Script() {
    CMsg::Instance().AddResponder(this);
    SetFwBuffer({0xFF});  // any byte is an image
    SetFlag(7);
  }
  ~Script() override { CMsg::Instance().RemoveResponder(this); }

  void OnLog(const char* raw, int level) override {
    const LogLine line = ParseLogLine(raw, level);
    EXPECT_EQ(tag, line.tag);
    text += "log " + std::to_string(level) + ": " + line.text;
  }
  void OnPrint(const char* line, int level) override {
    text += "print " + std::to_string(level) + ": " + line;
  }
  void OnProgress(int value) override { text += "progress " + std::to_string(value) + "\n"; }

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

  std::string text, tag;
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
    text += name;
    ((text += " " + std::to_string(arguments)), ...);
    text += "\n";
    if (++m_nCalls != failing) return true;
    if (throws) throw std::bad_alloc();
    return false;
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

/// Lines that are written " > " apart.
std::string Apart(const std::string& text) {
  static const std::regex kArrow(" > ");
  return text.empty() ? text : std::regex_replace(text, kArrow, "\n") + "\n";
}

/// A job: its steps, and its end when it fails and when a step throws. A line of the steps has a
/// call and what is shown when it is done; after "|" what follows when it fails, with END for the
/// end of the job, "+" when the job goes on after that, and "?" where a test of its own checks it.
/// Lines without "|" come first. Only jobs with a board take its steps.
struct Job {
  struct Step {
    std::string call, done, failed;
    bool goesOn;
  };
  Job(const std::string& jobName, bool (*jobRun)(Flow&), const std::string& lines,
      const std::string& end, const std::string& thrownEnd, bool hasBoard = false)
      : name(jobName), run(jobRun), thrown(Apart(thrownEnd)) {
    static const std::regex kStep(R"((.+?)(?: > (.+?))? \| (\+ ?)?(.*))"), kEnd("END");
    std::istringstream in(lines);
    std::smatch match;
    for (std::string line; std::getline(in, line);) {
      if (!std::regex_match(line, match, kStep)) {
        begin += line + "\n";
        continue;
      }
      const std::string failed = std::regex_replace(match.str(4), kEnd, end + " > false");
      steps.push_back({Apart(match[1]), Apart(match[2]), Apart(failed), match[3].matched});
    }
    if (!hasBoard) *this = WithoutBoard();
  }
  /// What happens from that step on when nothing fails.
  std::string Text(std::size_t from = 0) const {
    std::string text = from == 0 ? begin : "";
    for (; from < steps.size(); ++from) text += steps[from].call + steps[from].done;
    return text + "true\n";
  }
  Job WithoutBoard() const {
    Job job = *this;
    std::erase_if(job.steps, [](const Step& step) { return step.call.find_first_of("GI") == 0; });
    return job;
  }

  std::string name;
  bool (*run)(Flow&);
  std::string begin, thrown;
  std::vector<Step> steps;
};

const std::string kWritten = R"(progress 0
Gpio 5 1 0 | + log 3: Set GPIO 5 1 Fail
Connect 20 | END
Judge > progress 10 | log 3: Judge Code Mode Fail > END
ToRom > log 0: reset to rom success > progress 20 | log 3: fail to reset to rom > END
Leave 10 | + Remove
Gpio 5 1 0 | + log 3: Set GPIO 5 1 Fail
Connect 20 | END
Judge | ?
Erase > log 0: erase flash success > progress 30 | log 3: fail to erase flash > END
I2C 44 0 3 > log 3: Write I2C Speed | + log 3: Set I2C Speed Fail, Slave Addr:2c, Speed:259
Write > log 0: write flash success > progress 70 | log 3:  > fail to write flash > END
Check > log 0: check flash success > progress 90 | log 3:  > fail to check flash > END
)";
const std::string kStarted =
    R"(ToFlash > log 0: reset to flash success | log 3: fail to reset to flash > END
Leave 10 | + Remove
)";
const std::string kReleased =
    R"(UnInit 7 > log 0: uninit dev success > progress 100 | log 3: fail to uninit dev > END
Remove > log 1: Update Fw Success!spend time is )";
const std::string kReading = R"( | false
Judge | +
I2C 44 0 3 > log 3: Write I2C Speed | + log 3: Set I2C Speed Fail, Slave Addr:2c, Speed:259
Read 0 | log 3: Read Version is Fail > UnInit 7 > END
UnInit 7 | log 3: fail to uninit dev > END
Gpio 5 1 1 | + log 3: Reset GPIO Fail
Remove | +
)";
const std::string kFinish = "UnInit 7 > Remove";
const std::string kFailed = kFinish + " > progress 0 > log 1: Update Fw Fail";
const Job kUpdate(
    "DevUpdate", [](Flow& flow) { return flow.DevUpdate(); },
    kWritten + kStarted + R"(Gpio 5 1 0 | + log 3: Set GPIO 5 1 after pd reset Fail
Connect 20 > log 0: success to connect dev after reset > progress 100 | log 3: fail to connect dev after reset > END
UnInit 7 | +
Remove > log 1: Update Fw Success!spend time is 4 Sec | +
Gpio 5 1 1 | + log 3: Reset GPIO Fail
)",
    kFailed + " > Gpio 5 1 1", kFailed + " > Gpio 5 1 1", true);
const Job kReconn(
    "DevUpdateReconn", [](Flow& flow) { return flow.DevUpdateReconn(9); },
    kWritten + "Option 9 > log 3: fail to set tpc reconnect | +\n" + kStarted +
        "Connect 20 | END\n" + kReleased + "4 Sec | +\n",
    kFailed, kFailed);
const Job kSwitchOn(
    "DevUpdateSwitchOnBBafterReset",
    [](Flow& flow) {
      return flow.DevUpdateSwitchOnBBafterReset([] { return s_pScript->SwitchOn(); });
    },
    kWritten + kStarted + "Connect 20 > log 1: Connect try:0 | ?\n" + kReleased + "6 Sec | +\n",
    kFailed, kFailed);
const Job kReset(
    "ResetDeviceonly", [](Flow& flow) { return flow.ResetDeviceonly(); },
    R"(Connect 20 | END
Judge | log 3: Judge Code Mode Fail > END
ToFlash > log 1: success to reset to flash | log 3: fail to reset to flash > END
UnInit 7 | +
Remove > log 1: Reset Device Success | +
)",
    kFinish + " > log 1: Reset Device Fail", kFinish);
const Job kVersion(
    "DevReadVersion", [](Flow& flow) { return flow.DevReadVersion(&s_nVersion); },
    "Gpio 5 1 0 | + log 3: Set GPIO 5 1 Fail\nConnect 20" + kReading, "Gpio 5 1 1 > Remove",
    kFinish + " > Gpio 5 1 1", true);
const Job kVersionEx(
    "DevReadVersionEx", [](Flow& flow) { return flow.DevReadVersionEx(&s_nVersion, 7); },
    "Connect 7" + kReading, "Remove", kFinish);
const Job kStatus(
    "DveGetICStatus", [](Flow& flow) { return flow.DveGetICStatus(s_byStatus); },
    "Connect 20" + kReading, "Remove", kFinish);
const Job kErase(
    "DevErase", [](Flow& flow) { return flow.DevErase(); }, R"(progress 0
Connect 20 > progress 30 | END
Judge | ForceRom > log 0: force reset to rom success > Erase > progress 100 > Remove > print 1: Erase flash success > progress 0 > true
ForceRom > log 0: force reset to rom success | log 3: fail to force reset to rom > END
Leave 10 | print 1: Erase flash success > progress 0 > true
Connect 20 | print 1: Erase flash success > progress 0 > true
Judge | +
Erase > progress 100 | progress 100 > Remove > END
Remove > print 1: Erase flash success > progress 0 | +
)",
    "print 0: Erase flash fail > progress 0", kFinish + " > progress 0");

class StepsTest : public LayerTest {
 protected:
  /// What happens in a job on a fresh hub, and the result.
  std::string Run(const Job& job, std::size_t failing = 0, bool throws = false) {
    Script script;
    script.tag = "CUniversalFlow::" + job.name;
    script.failing = failing;
    script.throws = throws;
    if (prepareHub) prepareHub(script);
    Flow flow(script, script, hasDriver ? &script : nullptr);
    flow.SetGpioPara(hasBoard, 5, 1);
    flow.SetI2CSpeedPara(hasBoard, 0x103, 0x2C);
    flow.SetResetToFlash(resetsToFlash);
    s_pScript = &script;
    try {
      return job.run(flow) ? script.text + "true\n" : script.text + "false\n";
    } catch (const std::bad_alloc&) {
      return script.text + "thrown\n";
    }
  }
  /// A plain update without what lies between two texts.
  static std::string Shortened(const std::string& from, const std::string& to) {
    std::string text = kUpdate.Text();
    const std::size_t begin = text.find(from);
    text.erase(begin, text.find(to) - begin);
    return text.replace(text.find("4 Sec"), 1, "3");
  }

  std::function<void(Script&)> prepareHub;
  bool hasDriver = true, hasBoard = true, resetsToFlash = true;
};

TEST_F(StepsTest, AJobTakesItsStepsInOrderAndEndsWhenOneFailsOrThrows) {
  for (const Job* job :
       {&kUpdate, &kReconn, &kSwitchOn, &kReset, &kVersion, &kVersionEx, &kStatus, &kErase}) {
    EXPECT_EQ(job->Text(), Run(*job));
    std::string before = job->begin;
    for (std::size_t i = 0; i < job->steps.size(); ++i) {
      const auto& [call, done, failed, goesOn] = job->steps[i];
      SCOPED_TRACE(job->name + ", step " + std::to_string(i) + ": " + call);
      before += call;
      if (job != &kReset || i < 3) {  // the end of this job is not guarded
        EXPECT_EQ(before + job->thrown + "thrown\n", Run(*job, i + 1, true));
      }
      if (failed != "?\n") {
        EXPECT_EQ(before + (goesOn ? done + failed + job->Text(i + 1) : failed), Run(*job, i + 1));
      }
      before += done;
    }
  }
}

TEST_F(StepsTest, OnlyAHubInItsRomCodeIsErased) {
  prepareHub = [](Script& hub) { hub.runs = kStateRom; };
  EXPECT_EQ(Shortened("Leave", "Erase"), Run(kUpdate));
  prepareHub = [](Script& hub) { hub.isDualBank = true; };
  EXPECT_EQ(Shortened("Leave", "progress 30"), Run(kUpdate));
}

TEST_F(StepsTest, AHubThatCannotBeJudgedAfterItsResetIsNeitherErasedNorAwaited) {
  std::string expected = Shortened("Erase", "progress 30");
  const std::size_t away = expected.rfind("Leave");
  expected.erase(away, expected.find("progress 100") - away);
  EXPECT_EQ(expected, Run(kUpdate, 8));
}

TEST_F(StepsTest, WithoutTheResetOnlyThePlainUpdateLeavesTheHubInItsRomCode) {
  resetsToFlash = false;
  EXPECT_EQ(Shortened("ToFlash", "progress 100"), Run(kUpdate));
  for (const Job* job : {&kReconn, &kSwitchOn}) EXPECT_EQ(job->Text(), Run(*job));
}

TEST_F(StepsTest, WithoutAnImageNothingIsResetOrErased) {
  prepareHub = [](Script& hub) { hub.SetFwBuffer({}); };
  for (const Job* job : {&kUpdate, &kReconn, &kSwitchOn}) {
    const std::string text = job->Text(), judged = text.substr(0, text.find("ToRom"));
    EXPECT_EQ(judged + "log 3: \nfail to write flash\n" + job->thrown + "false\n", Run(*job));
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
    std::string expected = job->begin;
    for (const auto& [call, done, failed, goesOn] : job->steps) {
      expected += call[0] == 'G' ? failed : call + done;
    }
    hasDriver = false;
    EXPECT_EQ(expected + "true\n", Run(*job));
    hasDriver = true;
    hasBoard = false;
    EXPECT_EQ(job->WithoutBoard().Text(), Run(*job));
    hasBoard = true;
  }
}

TEST_F(StepsTest, ABoardWithoutPowerIsTriedFourTimesAndSwitchedOnUpToTenTimes) {
  const std::string text = kSwitchOn.Text();
  const std::size_t back = text.find("Connect 20\nlog 1"), released = text.rfind("UnInit");
  // The connect waits after the reset and the times of switching on that fail; then the seconds of
  // the job, with 2 after each try, 5 before the switch and 1 after each time that it fails.
  for (const auto& [waits, switches, seconds] :
       {std::tuple{0, 0, 6}, {3, 0, 17}, {4, 0, 23}, {4, 9, 32}, {4, 10, 0}, {5, 0, 0}}) {
    std::string expected = text.substr(0, back);
    for (int attempt = 0; attempt <= std::min(waits, 3); ++attempt) {
      expected += "Connect 20\nlog 1: Connect try:" + std::to_string(attempt) + "\n";
    }
    for (int i = 0; i < switches; ++i) expected += "SwitchOn\nlog 1: switch on BB failed\n";
    if (waits > 3 && switches < 10) {
      expected += "SwitchOn\nlog 1: switch on BB success\nConnect 20\n";
    }
    const std::string end = text.substr(released, text.find("6 Sec") - released);
    expected +=
        seconds > 0 ? end + std::to_string(seconds) + " Sec\ntrue\n" : kSwitchOn.thrown + "false\n";
    prepareHub = [waits = waits, switches = switches](Script& hub) {
      hub.lateConnects = waits;
      hub.switchFailures = switches;
    };
    EXPECT_EQ(expected, Run(kSwitchOn));
  }
}

}  // namespace
}  // namespace qzhid::test
