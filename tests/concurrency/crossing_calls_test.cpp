// Exports that are called while another one runs: from the progress callback of an update, and from
// other threads.
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <utility>

#include "api/api_calls.h"
#include "platform/platform.h"

namespace qzhid::test {
namespace {

const std::function<void(int percent)>* g_onProgress = nullptr;
void OnProgress(std::int32_t percent) { (*g_onProgress)(percent); }

/// How an update takes an export that is called from its callback.
enum class Effect { None, Refused, EndsProgress, Fails };

/// Whether the call comes from another thread, and at which percentage.
const std::pair<bool, int> kMoments[] = {{false, 0}, {false, 20}, {false, 45}, {false, 90},
                                         {true, 0},  {true, 20},  {true, 45},  {true, 90}};

struct Crossing {
  const char* name;
  std::function<std::uint64_t()> call;
  Effect effect;
  bool isRefusedToOthers;  ///< to other threads
  std::uint64_t refusal = 0;
};

class CrossingCallsTest : public ApiTest {
 protected:
  CrossingCallsTest() {
    EXPECT_EQ(1, QZ_SetLogPath(LogFile()));
    Begin();
  }

  static const char* LogFile() {
    static const TempFile file({}, "log.txt");  // the library chooses its log file once a process
    return file.path();
  }

  void Begin() {
    OpenFirstOfTwo();
    machine->recorder().Stop();
    other = machine->HidInstance("other");
  }

  bool Update(const std::function<void(int percent)>& onProgress = [](int) {}) {
    const auto outer = std::exchange(g_onProgress, &onProgress);
    const bool isUpdated = QZ_UpdateDev(handle, image.path(), OnProgress) == 1;
    g_onProgress = outer;
    return isUpdated;
  }
  bool IsOtherUntouched() { return Holds(virtualhub::BuildImage({}, 0x10000), 0, "other"); }

  /// Makes the calls on a thread each, one after the other, while `holder` is in an exchange on
  /// another thread: each waits for its turn when the next one begins. Then the exchange ends, and
  /// all must return.
  void CallInTurn(const std::function<void()>& holder,
                  const std::vector<std::function<void()>>& calls) {
    std::atomic<bool> isTaken{false}, isFree{false}, isOver{false};
    machine->SetExchangeHook([&](const virtualhub::Exchange&) {
      if (isTaken.exchange(true)) return;
      while (!isFree) std::this_thread::yield();
    });
    std::vector<std::thread> threads;
    threads.emplace_back(holder);
    while (!isTaken) std::this_thread::yield();
    for (const auto& call : calls) {
      std::atomic<pid_t> number{0};
      threads.emplace_back([&, call] {
        number = static_cast<pid_t>(syscall(SYS_gettid));
        call();
        isOver = true;
      });
      const auto isAsleep = [&number] {  // as the system shows it
        const std::string stat = "/proc/self/task/" + std::to_string(number) + "/stat";
        return ReadText(stat).find(") S") != std::string::npos;
      };
      while (number == 0 || !(isOver || isAsleep())) std::this_thread::yield();
      EXPECT_FALSE(isOver) << "it waits";
    }
    isFree = true;
    for (std::thread& thread : threads) thread.join();
    machine->SetExchangeHook(nullptr);
  }

  /// All 27.
  std::vector<Crossing> Crossings();

  const Bytes bytes = virtualhub::BuildImage({.version = 0x0210}, 0x7FA8);
  const TempFile image{bytes};
  const std::function<void()> readIds = [this] {
    EXPECT_EQ(1, QZ_GetHubVIDPIDFromHidDevice(other, &id, &id));
  };
  std::uint32_t other = 0, id = 0, count = 0;
  std::uint16_t version = 0;
  HidDevRecord* list = nullptr;
};

std::vector<Crossing> CrossingCallsTest::Crossings() {
  using enum Effect;
  const auto ids = [this] { return QZ_GetHubVIDPIDFromHidDevice(other, &id, &id); };
  std::vector<Crossing> all = {
      {"QZ_ListAllHidDev", [this] { return QZ_ListAllHidDev(&list, &count); }, Refused, true},
      {"QZ_ListAllHidDevByVIDPID", [this] { return QZ_ListAllHidDevByVIDPID(1, 2, &list, &count); },
       Refused, true},
      {"QZ_OpenHid", [this] { return QZ_OpenHid(other) != nullptr; }, Refused, true},
      {"QZ_UpdateDev", [this] { return QZ_UpdateDev(handle, image.path(), OnProgress); }, Refused,
       true},
      {"QZ_ReadBinVersion", [this] { return QZ_ReadBinVersion(handle, image.path(), &version); },
       Refused, true},
      {"QZ_ReadDevVersion", [this] { return QZ_ReadDevVersion(handle, &version); }, Refused, true},
      {"QZ_GetHubVIDPIDFromHidDevice", ids, Refused, true},
      {"QZ_CloseDev", [this] { return QZ_CloseDev(handle), 0; }, Fails, true},
      {"QZ_HidI2CConfig", [this] { return QZ_HidI2CConfig(handle, 0xA0, 2, 1); }, None, true,
       kRejected},
      {"QZ_FreeDevList", [] { return QZ_FreeDevList(nullptr), 0; }, None, false},
      {"QZ_DllPassPara", [] { return QZ_DllPassPara(1), 0; }, None, false},
      {"QZ_GetHidBinFileVIDPID", [this] { return QZ_GetHidBinFileVIDPID(image.path(), &id, &id); },
       None, false},
      {"QZ_SetLogPath", [] { return QZ_SetLogPath(LogFile()); }, None, false},
      {"QZ_GenerateDumplog", [] { return QZ_GenerateDumplog(), 0; }, None, false},
      {"QZ_ConfigLog", [] { return QZ_ConfigLog(1, 0); }, EndsProgress, false}};
  for (const ApiCall& call : kApiCalls) {
    all.push_back(
        {call.name.c_str(), [&] { return call.call(handle); }, None, true, call.Rejection()});
  }
  return all;
}

// The callback waits for the other thread, so a call that waited for the update, or for a lock
// under which the callback runs, would never end.
TEST_F(CrossingCallsTest, EveryExportInTheMiddleOfAnUpdateHasItsOutcome) {
  ASSERT_EQ(27u, Crossings().size());
  for (const Crossing& crossing : Crossings()) {
    for (const auto& [isOther, moment] : kMoments) {
      SCOPED_TRACE(Text("%s %d %d", crossing.name, isOther, moment));
      if (crossing.effect == Effect::None && moment != 45) continue;
      Begin();
      const bool isRefused = isOther && crossing.isRefusedToOthers;
      const Effect effect = isRefused ? Effect::Refused : crossing.effect;
      std::uint64_t result = crossing.refusal;
      std::size_t refusals = 0;
      int last = -1;
      count = 7;
      const bool isUpdated = Update([&, onOther = isOther, at = moment](int percent) {
        if (percent == at && last != at) {
          const auto call = [&] { result = crossing.call(); };
          onOther ? std::thread(call).join() : call();
          refusals = Count({3, crossing.name, "An update is running\n"});
        }
        last = percent;
      });
      EXPECT_EQ(effect != Effect::Fails, isUpdated);
      const int end = effect == Effect::EndsProgress ? moment : 100;
      EXPECT_EQ(effect == Effect::Fails ? 0 : end, last);
      EXPECT_EQ(effect == Effect::Refused ? 1u : 0u, refusals);
      if (effect == Effect::Refused) {
        EXPECT_EQ(crossing.refusal, result);
        EXPECT_EQ(std::string(crossing.name).starts_with("QZ_ListAll") ? 0u : 7u, count);
        EXPECT_EQ(nullptr, list);
      }
      CMsg::Instance().ClearResponders();
      CMsg::Instance().AddResponder(&log);
      QZ_DllPassPara(0);
      if (effect == Effect::Fails) {
        EXPECT_EQ(kNoHandles, Handles());
        EXPECT_EQ(kRejected, QZ_HidI2CConfig(handle, 0xA0, 2, 1));
        Open();
        EXPECT_TRUE(Update()) << "the hub can be updated after that";
      }
      EXPECT_TRUE(Holds(bytes));
      EXPECT_TRUE(IsOtherUntouched());
    }
  }
}

TEST_F(CrossingCallsTest, AtTheEndTheCallbackMayUseHubsAndClosesOfOtherThreadsAreDeferred) {
  void* const outer = handle;
  std::vector<int> inner;
  const auto isUsable = [](void* dev) { return QZ_HidI2CConfig(dev, 0xA0, 2, 1) == 0; };
  EXPECT_TRUE(Update([&](int percent) {
    if (percent != 100) return;
    EXPECT_EQ(1, QZ_ReadDevVersion(outer, &version));
    std::thread([&] { QZ_CloseDev(outer); }).join();
    EXPECT_EQ(0, QZ_UpdateDev(outer, "", nullptr)) << "which does not protect any longer";
    EXPECT_EQ(2u, List());
    handle = QZ_OpenHid(other);
    EXPECT_TRUE(Update([&](int value) {
      inner.push_back(value);
      EXPECT_EQ(value == 100 ? 2u : 0u, List()) << "the inner update is protected like any";
    }));
    EXPECT_TRUE(isUsable(outer)) << "it is closed when the outer update returns";
    EXPECT_EQ(2u, List());
    handle = QZ_OpenHid(machine->HidInstance("other"));
    std::thread([&] { QZ_CloseDev(handle); }).join();
    EXPECT_EQ(0u, QZ_HidGPIOW(handle, 1, 1)) << "the callback has a hub until it is over";
  }));
  EXPECT_EQ(0x0210, version);
  EXPECT_EQ(100, inner.back());
  EXPECT_TRUE(Holds(bytes));
  EXPECT_TRUE(Holds(bytes, 0, "other"));
  EXPECT_FALSE(isUsable(outer));
  EXPECT_FALSE(isUsable(handle));
  EXPECT_EQ(kNoHandles, Handles());
}

TEST_F(CrossingCallsTest, AllCallsThatWaitForTheirTurnGetIt) {
  std::atomic<int> listed{0}, sent{0};
  const auto send = [&] { sent += QZ_HidGPIOW(handle, 1, 1) != 1 ? 1 : 0; };
  const auto listBoth = [&] { listed += List() == 2 ? 1 : 0; };
  CallInTurn(readIds, {send, send, listBoth, listBoth});
  EXPECT_EQ(2, sent);
  EXPECT_EQ(2, listed);
  Open();
  CallInTurn(send, {listBoth, send});
  EXPECT_EQ(3, listed);
  EXPECT_EQ(kNoHandles, Handles());
}

TEST_F(CrossingCallsTest, AnUpdateThatBeginsRefusesAllCallsThatWaitForTheirTurn) {
  for (int round = 0; round < 5; ++round) {
    Begin();
    std::atomic<int> refused{0};
    const auto send = [&] { refused += QZ_HidGPIOW(handle, 1, 1) == 1 ? 1 : 0; };
    const auto awaitRefusals = [&](int percent) {
      while (percent == 0 && refused < 4) std::this_thread::yield();
    };
    CallInTurn(readIds, {send, send, send, send, [&] { Update(awaitRefusals); }});
    EXPECT_EQ(4u, Count({3, "QZ_HidGPIOW", "An update is running\n"}));
  }
}

// A starting thread configures the log on some systems.
TEST_F(CrossingCallsTest, NeitherAnUpdateNorAReadingIsHarmedByOtherThreads) {
  const auto configure = [] {
    platform::OnThreadAttach();
    QZ_SetLogPath(LogFile());
    QZ_ConfigLog(0, 0);
  };
  const auto share = [this] {
    QZ_HidI2CConfig(handle, 0xA0, 2, 1);
    QZ_HidI2CRead(handle, 0, g_room, 2);
    QZ_HidSetHubGPIO(handle, 1, 1);
  };
  const auto takeOver = [this] {
    List();
    QZ_CloseDev(QZ_OpenHid(other));
  };
  std::atomic<bool> isOver{false};
  std::atomic<int> begun{0};
  std::vector<std::thread> threads;
  const auto start = [&](const std::function<void()>& job) {
    threads.emplace_back([&, job] {
      for (job(), ++begun; !isOver;) job();
    });
  };
  EXPECT_TRUE(Update([&](int percent) {
    if (percent != 10) return;
    start(configure), start(share), start(takeOver);
    while (begun < 3) std::this_thread::yield();
  }));
  EXPECT_TRUE(Holds(bytes));
  for (int i = 0; i < 20; ++i) {
    List();
    EXPECT_EQ(1, QZ_GetHubVIDPIDFromHidDevice(other, &id, &count));
    EXPECT_EQ(0x2E7Cu, id);
  }
  isOver = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(IsOtherUntouched());
}

// The first exchange ends when the other thread has given up.
TEST_F(CrossingCallsTest, CallsThatOnlySendMeetAtTheTransferLockWhichGivesUpInTime) {
  std::atomic<bool> isInside{false}, hasGivenUp{false};
  machine->SetExchangeHook([&](const virtualhub::Exchange&) {
    if (isInside.exchange(true)) return;
    while (!hasGivenUp) std::this_thread::yield();
  });
  std::uint8_t first[2] = {}, second[2] = {};
  std::thread slow([&] { EXPECT_EQ(0u, QZ_HidGPIOR(handle, 1, first, 2)); });
  while (!isInside) std::this_thread::yield();
  EXPECT_EQ(kRejected, QZ_HidGPIOR(handle, 1, second, 2));
  hasGivenUp = true;
  slow.join();
  machine->SetExchangeHook(nullptr);
  constexpr const char* kTag = "CHidTransfers::HidDataIn";
  EXPECT_EQ(51u, Count({3, kTag, "Can't Obtain Lock!\n"})) << "every 100 ms up to 5000 ms";
  EXPECT_EQ(1u, Count({3, kTag, "WqHIDDataIn Timeout Fail! \n"}));
}

}  // namespace
}  // namespace qzhid::test
