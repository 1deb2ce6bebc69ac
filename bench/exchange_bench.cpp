// Requests and the write phase.
#include <array>

#include "QzHidAPI.h"
#include "device/hid_dev.h"
#include "discovery/node_matchers.h"
#include "machine.h"
#include "rows.h"
#include "virtualhub/hub/image.h"

using namespace qzhid;
using namespace qzhid::bench;

namespace {

using Data = std::array<std::uint8_t, 128>;
constexpr int kRequests = 2000;  // of one run
constexpr std::uint32_t kWritten = 256 * 1024;
constexpr double kMostAdded = 300e-9;  // seconds that the library adds to one request
constexpr double kMostSlowdown =
    1.02;  // times the baseline, where exchanges take as long as real ones

bool SendOut(CRequestCMD& commands) {
  static const Data data{};
  return commands.Yv_WriteFlash2(0x1000, data.data(), data.size()) == 0;
}

bool SendIn(CRequestCMD& commands) {
  Data data{};
  return commands.Yv_ReadFlash2(0x1000, data.data(), data.size()) == 0;
}

/// Compares one request with its own exchanges.
void Request(benchmark::State& state, const char* name, bool (*send)(CRequestCMD&)) {
  COpenHub hub(HubScenario(0, kWritten));
  CRequestCMD& commands = CRequestCMD::Instance();
  if (commands.Yv_VdCmdEnable(kEnableFlashWrite) != 0) Fail("the hub is locked");
  const auto request = [&] {
    if (!send(commands)) Fail("a request failed");
  };
  CBareExchanges bare(hub.Machine(), request);
  const auto repeat = [](const auto& work) {
    return Seconds([&] {
      for (int i = 0; i < kRequests; ++i) work();
    });
  };
  const Pairs pairs = RunPairs(
      state, [&] { return repeat(request); }, [&] { return repeat([&] { bare.Run(); }); });
  PrintDifference(name, pairs, kRequests, kMostAdded);
}
const CRowRunner g_requestRows[] = {{"request/out", 200, Request, &SendOut},
                                    {"request/in", 200, Request, &SendIn}};

/// Only the exchanges of the requests if `isBare`.
void CountRequests(int times, bool (*send)(CRequestCMD&), bool isBare) {
  COpenHub hub(HubScenario(0, kWritten));
  CRequestCMD& commands = CRequestCMD::Instance();
  if (commands.Yv_VdCmdEnable(kEnableFlashWrite) != 0) Fail("the hub is locked");
  const auto request = [&] { Expect(send(commands)); };
  CBareExchanges bare(hub.Machine(), request);
  for (int i = 0; i < times; ++i) isBare ? bare.Run() : request();
}
const CCounted g_requests[] = {{"request/out", CountRequests, &SendOut, false},
                               {"request/out/bare", CountRequests, &SendOut, true},
                               {"request/in", CountRequests, &SendIn, false},
                               {"request/in/bare", CountRequests, &SendIn, true}};

void SwitchLog(bool isOn) {
  static const int accepted = QZ_SetLogPath(TempPath("log.txt").c_str());
  if (accepted == 0) Fail("no log file");
  QZ_ConfigLog(isOn ? 1 : 0, 0);
}

void WritePhase(benchmark::State& state, const char* name, std::uint32_t latencyUs,
                bool isLogging) {
  COpenHub hub(HubScenario(latencyUs, kWritten));
  CHidDev device{NodeMatchers()};
  const FwBuffer image = virtualhub::BuildImage({}, kWritten);
  const auto write = [&] {
    if (!device.WriteFlashEx(image)) Fail("a write phase failed");
  };
  CBareExchanges bare(hub.Machine(), write);
  const auto writeLogged = [&] {
    SwitchLog(isLogging);
    const double seconds = Seconds(write);
    SwitchLog(false);
    return seconds;
  };
  const Pairs pairs = RunPairs(state, writeLogged, [&] { return Seconds([&] { bare.Run(); }); });
  const auto exchanges = static_cast<double>(bare.Count());
  if (latencyUs == 0) {
    PrintDifference(name, pairs, exchanges, kMostAdded);
  } else {
    PrintRatio(name, pairs, exchanges, kMostSlowdown);
  }
}
const CRowRunner g_writePhaseRows[] = {{"write_phase/log_off", 400, WritePhase, 0, false},
                                       {"write_phase/log_0", 400, WritePhase, 0, true},
                                       {"write_phase/250us/log_off", 15, WritePhase, 250, false},
                                       {"write_phase/250us/log_0", 15, WritePhase, 250, true}};

}  // namespace
