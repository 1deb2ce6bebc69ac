// Faults: which events they strike, and what they do.
#include "hub_bench.h"

namespace virtualhub::test {

namespace {

using On = Fault::On;
using Action = Fault::Action;

const std::string kStatus1 = "C0 09 0 0 0 0 1 0";  // its first byte

class FaultsTest : public HubBench {
 protected:
  FaultsTest() {
    Install(R"({"devices": [{"name": "hub", "port": "3.1", "running": "rom"},
                            {"name": "other", "port": "4"}]})");
  }

  void SetFault(const Fault& fault) {
    machine->ClearFaults();
    machine->AddFault(fault);
  }
};

TEST_F(FaultsTest, AFaultStrikesEventsOfItsKindFromTheNthOnAsOftenAsItCounts) {
  const std::pair<Fault, std::string> rows[] = {
      // what comes of four requests, six exchanges
      {{.on = On::Output}, "failed, 2E, ok, 2E"},
      {{.on = On::Output, .nth = 2, .count = 2}, "ok, failed, failed, 2E"},
      {{.on = On::Output, .nth = 3, .count = 0}, "ok, 2E, failed, failed"},
      {{.on = On::Input}, "ok, failed, ok, 2E"},
      {{.on = On::Exchange, .nth = 3}, "ok, failed, ok, 2E"},
      {{.on = On::Exchange, .nth = 4, .action = Action::Stall}, "ok, 2E, stall, 2E"},
      {{.on = On::Request, .requestType = 0xC0, .request = 0x09, .nth = 2}, "ok, 2E, ok, failed"},
      {{.on = On::Request, .requestType = 0x40, .request = 0x09}, "ok, 2E, ok, 2E"},
      {{.on = On::Request, .requestType = 0xC0, .request = 0x02}, "ok, 2E, ok, 2E"},
      {{.on = On::Output, .device = "other"}, "ok, 2E, ok, 2E"},
      {{.on = On::Output, .device = "hub"}, "failed, 2E, ok, 2E"},
      {{.on = On::Reset}, "ok, 2E, ok, 2E"}};
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    machine->ClearFaults();
    EXPECT_EQ("ok", Ask(kEnable1));
    machine->AddFault(rows[i].first);
    EXPECT_EQ(rows[i].second, Ask({kEnable1, kStatus1, kEnable1, kStatus1})) << "row " << i;
  }
}

TEST_F(FaultsTest, OfSeveralFaultsTheFirstOneActs) {
  machine->AddFault({.on = On::Output, .nth = 2, .action = Action::Stall});
  machine->AddFault({.on = On::Exchange, .count = 2, .code = 0});
  const HidNode hub = HubNode();
  EXPECT_EQ((Result{Error::SystemCode, 0}), machine->SetOutputReport(hub, Bytes(321)));
  EXPECT_EQ("stall, ok", Ask({kEnable1, kEnable1}));
}

TEST_F(FaultsTest, AnAnswerIsReplacedInItsWholeLength) {
  EXPECT_EQ("ok", Ask(kEnable1));
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
  const std::string write = "40 C8 0 0 0 0 1 0: 5A", read = "C0 D8 0 0 0 0 1 0";
  EXPECT_EQ("ok, ok", Ask({kEnable3, kErase}));
  SetFault({.on = On::Request, .requestType = 0x40, .request = 0xC8, .action = Action::LoseWrite});
  EXPECT_EQ("ok, FF, ok, 5A", Ask({write, read, write, read}));
}

TEST_F(FaultsTest, ADeviceThatIsTakenOffReturnsInTimeOrNever) {
  const std::tuple<Action, std::optional<std::uint32_t>, std::string, std::string> rows[] = {
      {Action::Unplug, 30, "4.2", "rom 00 01"},  // it still runs the same code
      {Action::PowerLoss, 30, "4", "flash 01 02"},
      {Action::Unplug, std::nullopt, "", ""}};
  for (const auto& [action, returnMs, port, state] : rows) {
    Install(OneHub(R"("running": "rom")"));
    SetFault({.on = On::Output, .action = action, .returnMs = returnMs, .port = port});
    EXPECT_EQ(Error::CutOff, Send(Hex(kEnable1)));
    machine->SleepMs(29);
    EXPECT_FALSE(machine->OnBus("hub"));
    machine->SleepMs(returnMs ? 1 : 1'000'000);
    const auto back = machine->OnBus("hub");
    EXPECT_EQ(PortPath::Parse(port), back ? std::optional(back->port) : std::nullopt);
    EXPECT_EQ(state, back ? State() : "");
  }
}

TEST_F(FaultsTest, AFaultOfAnotherDeviceLeavesTheOneConcernedAlone) {
  const auto service = Service::OpenNodeSet;
  SetFault({.on = On::Call, .service = service, .device = "other", .action = Action::Unplug});
  machine->Call(service, 0, 0, [](const Machine::View&) { return Result{}; });
  EXPECT_FALSE(machine->OnBus("other"));
  EXPECT_EQ("ok", Ask(kEnable1));
}

TEST_F(FaultsTest, AHeldDeviceIsReleasedInTime) {
  const DevInst hid = machine->HidInstance("hub");
  const auto isHeld = [&](std::uint32_t afterMs) {
    machine->SleepMs(afterMs);
    return machine->Call(Service::OpenHidDevice, hid, 0, [&](const Machine::View& view) {
      return Result{view.IsHeld(hid) ? Error::HeldByOther : Error::None};
    });
  };
  SetFault({.on = On::Output, .action = Action::Hold, .releaseMs = 20});
  EXPECT_EQ(Error::None, isHeld(0).error);
  EXPECT_EQ("ok", Ask(kEnable1)) << "whoever has it open keeps it";
  EXPECT_EQ(Error::HeldByOther, isHeld(19).error);
  EXPECT_EQ(Error::None, isHeld(1).error);
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
