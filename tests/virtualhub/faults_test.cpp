// Faults: which events they strike, and what they do.
#include "hub_bench.h"

namespace virtualhub::test {

namespace {

using On = Fault::On;
using Action = Fault::Action;
using Outcomes = std::vector<std::string>;

const std::string kEnable1 = "40 02 1 0 7C 2E 0 0";

class FaultsTest : public HubBench {
 protected:
  FaultsTest() {
    Install(R"({"devices": [{"name": "hub", "port": "3.1", "running": "rom",
                             "timing": {"latency_us": 0}},
                            {"name": "other", "port": "4"}]})");
  }

  void SetFault(const Fault& fault) {
    machine->ClearFaults();
    machine->AddFault(fault);
  }
  Outcomes Repeat(const std::string& request, int times) {
    Outcomes outcomes;
    while (times-- > 0) outcomes.push_back(Ask(request));
    return outcomes;
  }
  /// The results of an output report, of another one, and of an input report.
  std::vector<Error> Exchanges() {
    Bytes answer;
    return {Send(FromHex(kEnable1)), Send(FromHex(kStatus)), Take(answer).error};
  }
};

TEST_F(FaultsTest, AFaultStrikesFromTheNthEventOnAsOftenAsItCounts) {
  const struct {
    std::uint32_t nth, count;
    Outcomes outcomes;
  } rows[] = {{1, 1, {"stall", "ok", "ok", "ok"}},
              {3, 1, {"ok", "ok", "stall", "ok"}},
              {2, 2, {"ok", "stall", "stall", "ok"}},
              {2, 0, {"ok", "stall", "stall", "stall"}}};
  for (const auto& row : rows) {
    SetFault({.on = On::Output, .nth = row.nth, .count = row.count, .action = Action::Stall});
    EXPECT_EQ(row.outcomes, Repeat(kEnable1, 4)) << row.nth << ", " << row.count << " times";
  }
}

TEST_F(FaultsTest, AFaultCountsOnlyEventsOfItsKind) {
  constexpr Error kOk = Error::None, kStruck = Error::SystemCode;
  const std::pair<Fault, std::vector<Error>> rows[] = {
      {{.on = On::Exchange, .nth = 1}, {kStruck, kOk, kOk}},
      {{.on = On::Exchange, .nth = 3}, {kOk, kOk, kStruck}},
      {{.on = On::Output, .nth = 2}, {kOk, kStruck, Error::Stall}},
      {{.on = On::Input, .nth = 1}, {kOk, kOk, kStruck}},
      {{.on = On::Request, .requestType = 0xC0, .request = 0x09}, {kOk, kStruck, Error::Stall}},
      {{.on = On::Request, .requestType = 0x40, .request = 0x09}, {kOk, kOk, kOk}},
      {{.on = On::Output, .device = "other"}, {kOk, kOk, kOk}},
      {{.on = On::Reset}, {kOk, kOk, kOk}}};
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    ASSERT_TRUE(Enable(1));
    SetFault(rows[i].first);
    EXPECT_EQ(rows[i].second, Exchanges()) << "row " << i;
  }
}

TEST_F(FaultsTest, AFaultOnACallStrikesItsServiceAlone) {
  const auto call = [&](Service service) {
    return machine->Call(service, 0, 0, [](const Machine::View&) { return Result{}; });
  };
  constexpr int kServices = static_cast<int>(Service::NativeArchitecture) + 1;
  for (int i = 0; i < kServices; ++i) {
    const auto struck = static_cast<Service>(i);
    const auto spared = static_cast<Service>((i + 1) % kServices);
    SetFault({.on = On::Call, .service = struck, .code = 4711});
    EXPECT_EQ(Result{}, call(spared)) << NameOf(struck);
    EXPECT_EQ((Result{Error::SystemCode, 4711}), call(struck)) << NameOf(struck);
    EXPECT_EQ(Result{}, call(struck)) << NameOf(struck);
  }
}

TEST_F(FaultsTest, OfSeveralFaultsTheFirstOneActs) {
  machine->AddFault({.on = On::Output, .nth = 2, .action = Action::Stall});
  machine->AddFault({.on = On::Exchange, .count = 2, .code = 5});
  EXPECT_EQ((Outcomes{"failed", "stall", "ok"}), Repeat(kEnable1, 3));
}

TEST_F(FaultsTest, AnAnswerIsReplacedInItsWholeLength) {
  ASSERT_TRUE(Enable(1));
  const auto answer = [&](const Fault& fault) {
    SetFault(fault);
    return Ask("C0 D8 0 0 0 0 3 0");
  };
  for (const On on : {On::Input, On::Output}) {
    EXPECT_EQ("00 00 00", answer({.on = on, .action = Action::AnswerZeros}));
    EXPECT_EQ("FF FF FF", answer({.on = on, .action = Action::AnswerOnes}));
    const std::string random = answer({.on = on, .action = Action::AnswerRandom, .seed = 7});
    EXPECT_EQ(random, answer({.on = on, .action = Action::AnswerRandom, .seed = 7}));
    EXPECT_NE(random, answer({.on = on, .action = Action::AnswerRandom, .seed = 8}));
  }
}

TEST_F(FaultsTest, ALostWriteIsAcceptedButNotCarriedOut) {
  ASSERT_TRUE(Enable(3));
  ASSERT_TRUE(Ok(kErase));
  SetFault({.on = On::Request, .requestType = 0x40, .request = 0xC8, .action = Action::LoseWrite});
  Expect({{"40 C8 0 0 0 0 1 0: 5A", "ok"},
          {"C0 D8 0 0 0 0 1 0", "FF"},
          {"40 C8 0 0 0 0 1 0: 5A", "ok"},
          {"C0 D8 0 0 0 0 1 0", "5A"}});
}

TEST_F(FaultsTest, AFailureMayHaveNoCode) {
  SetFault({.on = On::Input, .code = 0});
  Bytes answer;
  EXPECT_EQ((Result{Error::SystemCode, 0}), Take(answer));
}

TEST_F(FaultsTest, AnUnpluggedHubReturnsInTimeAndRunsTheSameCode) {
  SetFault({.on = On::Output, .action = Action::Unplug, .returnMs = 30, .port = "4.2"});
  EXPECT_EQ(Error::CutOff, Send(FromHex(kEnable1)));
  machine->SleepMs(29);
  EXPECT_FALSE(machine->OnBus("hub"));
  machine->SleepMs(1);
  ASSERT_TRUE(machine->OnBus("hub"));
  EXPECT_EQ(PortPath::Parse("4.2"), machine->OnBus("hub")->port);
  EXPECT_EQ(Code::Rom, machine->hub("hub").code());
}

TEST_F(FaultsTest, AHubStartsAgainAfterALossOfPower) {
  SetFault({.on = On::Output, .action = Action::PowerLoss, .returnMs = 0});
  EXPECT_EQ(Error::CutOff, Send(FromHex(kEnable1)));
  EXPECT_EQ(Code::Flash, machine->hub("hub").code());
}

TEST_F(FaultsTest, AnUnplugWithoutAReturnIsForever) {
  SetFault({.on = On::Output, .action = Action::Unplug});
  EXPECT_EQ(Error::CutOff, Send(FromHex(kEnable1)));
  machine->SleepMs(1'000'000);
  EXPECT_FALSE(machine->OnBus("hub"));
}

TEST_F(FaultsTest, AFaultOfAnotherDeviceLeavesTheExchangeAlone) {
  SetFault({.on = On::Call,
            .service = Service::OpenNodeSet,
            .device = "other",
            .action = Action::Unplug});
  machine->Call(Service::OpenNodeSet, 0, 0, [](const Machine::View&) { return Result{}; });
  EXPECT_FALSE(machine->OnBus("other"));
  EXPECT_EQ("ok", Ask(kEnable1));
}

TEST_F(FaultsTest, AResetMayEndElsewhereOrNever) {
  SetFault({.on = On::Reset, .action = Action::ReturnAt, .port = "5"});
  ASSERT_TRUE(ResetToRom());
  EXPECT_EQ(PortPath::Parse("5"), machine->OnBus("hub")->port);
  SetFault({.on = On::Reset, .action = Action::NeverReturn});
  EXPECT_FALSE(ResetToRom());
}

TEST_F(FaultsTest, AHeldDeviceIsReleasedInTime) {
  const DevInst hid = machine->HidInstance("hub");
  const auto isHeld = [&] {
    bool held = false;
    machine->Call(Service::OpenHidDevice, hid, 0, [&](const Machine::View& view) {
      held = view.IsHeld(hid);
      return Result{};
    });
    return held;
  };
  SetFault({.on = On::Output, .action = Action::Hold, .releaseMs = 20});
  EXPECT_FALSE(isHeld());
  EXPECT_EQ("ok", Ask(kEnable1)) << "whoever has it open keeps it";
  machine->SleepMs(19);
  EXPECT_TRUE(isHeld());
  machine->SleepMs(1);
  EXPECT_FALSE(isHeld());
}

TEST_F(FaultsTest, AFaultThatCannotStrikeIsRejected) {
  EXPECT_THROW(machine->AddFault({.on = On::Call}), std::invalid_argument) << "no service";
  EXPECT_THROW(machine->AddFault({.on = On::Input, .service = Service::GetCaps}),
               std::invalid_argument);
  EXPECT_THROW(machine->AddFault({.device = "nobody"}), std::out_of_range);
  EXPECT_THROW(machine->AddFault({.port = "3.x"}), std::out_of_range);
}

}  // namespace

}  // namespace virtualhub::test
