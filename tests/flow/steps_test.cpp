// Every job's steps in order, and what follows when one of them fails.
#include <functional>

#include "flow/script.h"
#include "flow/universal_flow.h"
#include "support/layer_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAreArray;
using Flow = CUniversalFlow;

/// Where the nth call of that name ends.
std::ptrdiff_t EndOf(const Steps& steps, const std::string& call, int nth) {
  auto at = steps.begin();
  for (; nth > 0 && at != steps.end(); ++at) nth -= *at == call ? 1 : 0;
  EXPECT_EQ(0, nth) << call << " is not a step";
  return at - steps.begin();
}

// The parts that the jobs have in common.
const Steps kJudged = {"progress 0", "Connect 20", "Judge", "progress 10"};
const Steps kToRom = {"ToRom", "log 0: reset to rom success\n", "progress 20"};
const Steps kBack = {"Leave 10", "Connect 20"};
const Steps kErase = {"Erase", "log 0: erase flash success\n"};
const Steps kWrite = {"Write", "log 0: write flash success\n", "progress 70",
                      "Check", "log 0: check flash success\n", "progress 90"};
const Steps kProgram = Steps{"progress 30"} + kWrite;
const Steps kWritten = kJudged + kToRom + kBack + "Judge" + kErase + kProgram;
const Steps kToFlash = {"ToFlash", "log 0: reset to flash success\n"};
const Steps kThere = {"log 0: success to connect dev after reset\n"};
const Steps kFinish = {"UnInit 7", "Remove"};
const Steps kReleased = {"UnInit 7", "log 0: uninit dev success\n", "progress 100", "Remove"};
const Steps kFailed = kFinish + Steps{"progress 0", "log 1: Update Fw Fail\n"};
Steps Success(int seconds) {
  return {"log 1: Update Fw Success!spend time is " + std::to_string(seconds) + " Sec\n"};
}

Script* s_pScript = nullptr;  // of the job that runs
std::uint16_t s_nVersion = 0;
std::uint8_t s_byStatus = 0;

/// A job, and its steps when nothing fails.
struct Job {
  std::string name;
  bool (*run)(Flow& flow);
  Steps steps;
};
const Job kUpdate = {"DevUpdate", [](Flow& flow) { return flow.DevUpdate(); },
                     kWritten + kToFlash + kBack + kThere + "progress 100" + kFinish + Success(4)};
const Job kReconn = {"DevUpdateReconn", [](Flow& flow) { return flow.DevUpdateReconn(9); },
                     kWritten + Steps{"Option 9", "log 3: fail to set tpc reconnect\n"} + kToFlash +
                         kBack + kReleased + Success(4)};
const Job kSwitchOn = {
    "DevUpdateSwitchOnBBafterReset",
    [](Flow& flow) {
      return flow.DevUpdateSwitchOnBBafterReset([] { return s_pScript->SwitchOn(); });
    },
    kWritten + kToFlash + kBack + "log 1: Connect try:0\n" + kReleased + Success(6)};
const Job kReset = {"ResetDeviceonly", [](Flow& flow) { return flow.ResetDeviceonly(); },
                    Steps{"Connect 20", "Judge", "ToFlash", "log 1: success to reset to flash\n"} +
                        kFinish + "log 1: Reset Device Success\n"};
const Job kVersion = {"DevReadVersion", [](Flow& flow) { return flow.DevReadVersion(&s_nVersion); },
                      Steps{"Connect 20", "Judge", "Read 528"} + kFinish};
const Job kVersionEx = {"DevReadVersionEx",
                        [](Flow& flow) { return flow.DevReadVersionEx(&s_nVersion, 7); },
                        Steps{"Connect 7", "Judge", "Read 528"} + kFinish};
const Job kStatus = {"DveGetICStatus", [](Flow& flow) { return flow.DveGetICStatus(&s_byStatus); },
                     Steps{"Connect 20", "Judge", "Read 46"} + kFinish};
const Job kEraseJob = {"DevErase", [](Flow& flow) { return flow.DevErase(); },
                       Steps{"progress 0", "Connect 20", "progress 30", "Judge", "ForceRom",
                             "log 0: force reset to rom success\n"} +
                           kBack +
                           Steps{"Judge", "Erase", "progress 100", "Remove",
                                 "print 1: Erase flash success\n", "progress 0"}};
const Job* const kUpdates[] = {&kUpdate, &kReconn, &kSwitchOn};
const Job* const kOthers[] = {&kReset, &kVersion, &kVersionEx, &kStatus, &kEraseJob};

class StepsTest : public LayerTest {
 protected:
  /// Runs a job on a fresh hub; it must end with that result after those steps.
  void Expect(bool result, const Steps& expected, const Job& job, const Failing& failing = {}) {
    SCOPED_TRACE(job.name + ", failing: " + failing.call + " " + std::to_string(failing.nth));
    EXPECT_EQ(result, Run(job, failing));
    EXPECT_THAT(steps, ElementsAreArray(expected));
  }
  bool Run(const Job& job, const Failing& failing) {
    Script script;
    script.tag = "CUniversalFlow::" + job.name;
    script.failing = failing;
    if (prepareHub) prepareHub(script);
    Flow flow(script, script, hasGpio ? &script : nullptr);
    if (hasBoard) {
      flow.SetGpioPara(1, 5, 1);
      flow.SetI2CSpeedPara(1, 0x103, 0x2C);
    }
    flow.SetResetToFlash(resetsToFlash);
    s_pScript = &script;
    bool result = false;
    try {
      result = job.run(flow);
    } catch (const std::bad_alloc&) {
      script.steps.emplace_back("throws");
    }
    s_pScript = nullptr;
    steps = script.steps;
    return result;
  }

  std::function<void(Script&)> prepareHub;
  bool hasGpio = true, hasBoard = false, resetsToFlash = true;
  Steps steps;
};

TEST_F(StepsTest, AJobTakesItsStepsInOrder) {
  for (const Job* job : kUpdates) Expect(true, job->steps, *job);
  for (const Job* job : kOthers) Expect(true, job->steps, *job);
}

TEST_F(StepsTest, AFailedStepIsReportedOnceAndEndsTheJob) {
  struct Case {
    const Job* job;
    std::string call;
    int nth;
    Steps rest;  // after the failed call
    bool result = false;
  };
  const Steps notFlash = {"log 3: fail to reset to flash\n"};
  const Steps notJudged = {"log 3: Judge Code Mode Fail\n"};
  const Steps notReleased = {"log 3: fail to uninit dev\n"};
  const Steps notReset = kFinish + "log 1: Reset Device Fail\n";
  const Steps notErased = {"print 0: Erase flash fail\n", "progress 0"};
  const Steps asErased = {"print 1: Erase flash success\n", "progress 0"};
  std::vector<Case> cases = {
      {&kUpdate, "Connect 20", 3, Steps{"log 3: fail to connect dev after reset\n"} + kFailed},
      {&kReconn, "Connect 20", 3, kFailed},
      {&kReconn, "UnInit 7", 1, notReleased + kFailed},
      {&kSwitchOn, "UnInit 7", 1, notReleased + kFailed},
      {&kReset, "Connect 20", 1, notReset},
      {&kReset, "Judge", 1, notJudged + notReset},
      {&kReset, "ToFlash", 1, notFlash + notReset},
      {&kVersion, "Connect 20", 1, {}},
      {&kVersion, "Read 528", 1, Steps{"log 3: Read Version is Fail\n"} + kFinish},
      {&kVersion, "UnInit 7", 1, notReleased + "Remove"},
      {&kEraseJob, "Connect 20", 1, notErased},
      {&kEraseJob, "ForceRom", 1, Steps{"log 3: fail to force reset to rom\n"} + notErased},
      {&kEraseJob, "Erase", 1, Steps{"progress 100", "Remove"} + notErased},
      // A hub that is lost on its way is shown as erased.
      {&kEraseJob, "Leave 10", 1, asErased, true},
      {&kEraseJob, "Connect 20", 2, asErased, true}};
  for (const Job* job : kUpdates) {
    cases.push_back({job, "Connect 20", 1, kFailed});
    cases.push_back({job, "Judge", 1, notJudged + kFailed});
    cases.push_back({job, "ToRom", 1, Steps{"log 3: fail to reset to rom\n"} + kFailed});
    cases.push_back({job, "Connect 20", 2, kFailed});
    cases.push_back({job, "Erase", 1, Steps{"log 3: fail to erase flash\n"} + kFailed});
    cases.push_back({job, "Write", 1, Steps{"log 3: \nfail to write flash\n"} + kFailed});
    cases.push_back({job, "Check", 1, Steps{"log 3: \nfail to check flash\n"} + kFailed});
    cases.push_back({job, "ToFlash", 1, notFlash + kFailed});
  }
  for (const Case& c : cases) {
    Steps expected = c.job->steps;
    expected.resize(static_cast<std::size_t>(EndOf(expected, c.call, c.nth)));
    Expect(c.result, expected + c.rest, *c.job, {c.call, c.nth});
  }
}

TEST_F(StepsTest, AStepThatThrowsEndsTheJobAsAFailureDoesAndRestoresTheBoard) {
  hasBoard = true;
  const Steps restored = {"Gpio 5 1 1"};
  const std::tuple<const Job*, std::string, Steps> cases[] = {
      {&kUpdate, "Connect 20", kFailed + restored},
      {&kUpdate, "Write", kFailed + restored},
      {&kReconn, "Write", kFailed},
      {&kSwitchOn, "Leave 10", kFailed},
      {&kReset, "Judge", kFinish},
      {&kVersion, "Read 528", kFinish + restored},
      {&kVersionEx, "Read 528", kFinish},
      {&kStatus, "Judge", kFinish},
      {&kEraseJob, "Erase", kFinish + "progress 0"}};
  for (const auto& [job, call, end] : cases) {
    SCOPED_TRACE(job->name + ": " + call);
    Run(*job, {call, 1, 1, true});
    steps.erase(steps.begin(), steps.begin() + EndOf(steps, call, 1));
    EXPECT_THAT(steps, ElementsAreArray(end + "throws"));
  }
}

TEST_F(StepsTest, SomeFailuresDoNotEndTheJob) {
  for (const char* call : {"UnInit 7", "Remove"}) Expect(true, kUpdate.steps, kUpdate, {call});
  Expect(true, kReconn.steps, kReconn, {"Option 9"});
  Expect(true, kVersion.steps, kVersion, {"Judge"});
}

TEST_F(StepsTest, AHubThatDoesNotLeaveAfterAResetIsTakenForGone) {
  for (const Job* job : kUpdates) {
    Steps expected;
    for (const auto& step : job->steps) {
      expected.push_back(step);
      if (step == "Leave 10") expected.emplace_back("Remove");
    }
    Expect(true, expected, *job, {"Leave 10", 1, 0});
  }
}

TEST_F(StepsTest, OnlyAHubInItsRomCodeIsErased) {
  const Steps end = Steps{"progress 100"} + kFinish + Success(3);
  const Steps back = kToFlash + kBack + kThere + end;
  prepareHub = [](Script& hub) { hub.runs = kStateRom; };
  Expect(true, kJudged + kToRom + kErase + kProgram + back, kUpdate);
  prepareHub = [](Script& hub) { hub.isDualBank = true; };
  Expect(true, kJudged + kToRom + kProgram + back, kUpdate);
  // Nor one that came back and could not be judged; its state does not await a reset either.
  prepareHub = nullptr;
  Expect(true, kJudged + kToRom + kBack + "Judge" + kProgram + kToFlash + end, kUpdate,
         {"Judge", 2});
}

TEST_F(StepsTest, WithoutTheResetOnlyThePlainUpdateLeavesTheHubInItsRomCode) {
  resetsToFlash = false;
  Expect(true, kWritten + "progress 100" + kFinish + Success(3), kUpdate);
  for (const Job* job : {&kReconn, &kSwitchOn}) Expect(true, job->steps, *job);
}

TEST_F(StepsTest, WithoutAnImageNothingIsResetOrErased) {
  prepareHub = [](Script& hub) { hub.SetFwBuffer({}); };
  const Steps refused = kJudged + "log 3: \nfail to write flash\n" + kFailed;
  for (const Job* job : kUpdates) Expect(false, refused, *job);
  prepareHub = [](Script& hub) { hub.SetFwBuffer({0xFF}); };
  for (const Job* job : kUpdates) Expect(true, job->steps, *job);  // any byte is an image
}

TEST_F(StepsTest, BoardStepsAreTakenByTheUpdateAndTheReadOfTheVersionOnly) {
  hasBoard = true;
  const Steps set = {"Gpio 5 1 0"}, restored = {"Gpio 5 1 1"};
  const Steps speed = {"I2C 44 0 3", "log 3: Write I2C Speed\n"};
  const Steps back = {"Leave 10", "Gpio 5 1 0", "Connect 20"};
  Expect(true,
         Steps{"progress 0"} + set + Steps{"Connect 20", "Judge", "progress 10"} + kToRom + back +
             "Judge" + kErase + "progress 30" + speed + kWrite + kToFlash + back + kThere +
             "progress 100" + kFinish + Success(4) + restored,
         kUpdate);
  Expect(false, Steps{"progress 0"} + set + "Connect 20" + kFailed + restored, kUpdate,
         {"Connect 20"});
  Expect(true,
         set + Steps{"Connect 20", "Judge"} + speed + Steps{"Read 528", "UnInit 7"} + restored +
             "Remove",
         kVersion);
  Expect(false, set + "Connect 20", kVersion, {"Connect 20"});
  for (const Job* job : {&kReconn, &kSwitchOn, &kReset, &kVersionEx, &kStatus, &kEraseJob}) {
    Expect(true, job->steps, *job);
  }
}

TEST_F(StepsTest, BoardStepsThatFailAreReportedAndPassedOver) {
  hasBoard = true;
  const std::string notSet = "log 3: Set GPIO 5 1 Fail\n", notRestored = "log 3: Reset GPIO Fail\n";
  const std::string notAgain = "log 3: Set GPIO 5 1 after pd reset Fail\n";
  const std::string written = "log 3: Write I2C Speed\n";
  const Steps never = {notSet, notSet, written, notAgain};
  const std::pair<std::string, Steps> cases[] = {
      {"Gpio 5 1 0", never},
      {"Gpio 5 1 1", {written, notRestored}},
      {"no driver", never + notRestored},
      {"I2C 44 0 3", {written, "log 3: Set I2C Speed Fail, Slave Addr:2c, Speed:259\n"}}};
  for (const auto& [call, failures] : cases) {
    SCOPED_TRACE(call);
    hasGpio = call != "no driver";
    EXPECT_TRUE(Run(kUpdate, {call, 1, 0}));
    std::erase_if(steps, [](const std::string& step) { return !step.starts_with("log 3"); });
    EXPECT_THAT(steps, ElementsAreArray(failures));
  }
}

TEST_F(StepsTest, ABoardWithoutPowerIsTriedFourTimesAndSwitchedOnUpToTenTimes) {
  // The connect waits after the reset and the times of switching on that fail; then the seconds of
  // the job, with 2 after each try, 5 before the switch and 1 after each time that it fails.
  for (const auto& [waits, switches, seconds] :
       {std::tuple{0, 0, 6}, {3, 0, 17}, {4, 0, 23}, {4, 9, 32}, {4, 10, 0}, {5, 0, 0}}) {
    Steps expected = kWritten + kToFlash + "Leave 10";
    for (int attempt = 0; attempt <= std::min(waits, 3); ++attempt) {
      expected.emplace_back("Connect 20");
      expected.push_back("log 1: Connect try:" + std::to_string(attempt) + "\n");
    }
    for (int i = 0; i < switches; ++i) {
      expected = expected + Steps{"SwitchOn", "log 1: switch on BB failed\n"};
    }
    if (waits > 3 && switches < 10) {
      expected = expected + Steps{"SwitchOn", "log 1: switch on BB success\n", "Connect 20"};
    }
    prepareHub = [count = switches](Script& hub) { hub.switchFailures = count; };
    Expect(seconds > 0, expected + (seconds > 0 ? kReleased + Success(seconds) : kFailed),
           kSwitchOn, {waits > 0 ? "Connect 20" : "", 3, waits});
  }
}

}  // namespace
}  // namespace qzhid::test
