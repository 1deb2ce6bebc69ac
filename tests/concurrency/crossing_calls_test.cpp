// Exports that are called while another one runs: from the progress callback of an update, and from
// other threads.
#include <unistd.h>

#include <atomic>
#include <thread>
#include <utility>

#include "api/api_calls.h"
#include "platform/platform.h"

namespace qzhid::test {
namespace {

constexpr const char* kRunning = "An update is running\n";

const auto kNothing = [](int) {};
std::function<void(int percent)> g_onProgress = kNothing;
void OnProgress(std::int32_t percent) { g_onProgress(percent); }

/// How an update takes an export that is called from its callback.
enum class Effect { None, Refused, EndsProgress, Fails };

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

  bool Update() { return QZ_UpdateDev(handle, image.path(), OnProgress) == 1; }

  bool Update(std::function<void(int percent)> onProgress) {
    g_onProgress = std::move(onProgress);
    const bool isUpdated = Update();
    g_onProgress = kNothing;
    return isUpdated;
  }

  /// All 27.
  std::vector<Crossing> Crossings();

  const Bytes bytes = virtualhub::BuildImage({.version = 0x0210}, 0x7FA8);
  const TempFile image{bytes};
  std::uint32_t other = 0;
};

std::vector<Crossing> CrossingCallsTest::Crossings() {
  static HidDevRecord* list = nullptr;
  static std::uint32_t count = 0, id = 0;
  static std::uint16_t version = 0;
  using enum Effect;
  std::vector<Crossing> all = {
      {"QZ_ListAllHidDev", [] { return QZ_ListAllHidDev(&list, &count); }, Refused, true},
      {"QZ_ListAllHidDevByVIDPID", [] { return QZ_ListAllHidDevByVIDPID(1, 2, &list, &count); },
       Refused, true},
      {"QZ_OpenHid", [this] { return reinterpret_cast<std::uint64_t>(QZ_OpenHid(other)); }, Refused,
       true},
      {"QZ_UpdateDev", [this] { return Update(); }, Refused, true},
      {"QZ_ReadBinVersion", [this] { return QZ_ReadBinVersion(handle, image.path(), &version); },
       Refused, true},
      {"QZ_ReadDevVersion", [this] { return QZ_ReadDevVersion(handle, &version); }, Refused, true},
      {"QZ_GetHubVIDPIDFromHidDevice",
       [this] { return QZ_GetHubVIDPIDFromHidDevice(other, &id, &id); }, Refused, true},
      {"QZ_CloseDev", [this] { return QZ_CloseDev(handle), 0; }, Fails, true},
      {"QZ_HidI2CConfig", [this] { return QZ_HidI2CConfig(handle, 0xA0, 2, 1); }, None, true,
       kRejected},
      {"QZ_FreeDevList", [] { return QZ_FreeDevList(nullptr), 0; }, None, false},
      {"QZ_DllPassPara", [] { return QZ_DllPassPara(1), 0; }, None, false},
      {"QZ_GetHidBinFileVIDPID", [this] { return QZ_GetHidBinFileVIDPID(image.path(), &id, &id); },
       None, false},
      {"QZ_SetLogPath", [] { return QZ_SetLogPath(LogFile()); }, None, false},
      {"QZ_GenerateDumplog", [] { return QZ_GenerateDumplog(), 0; }, None, false},
      {"QZ_ConfigLog", [] { return QZ_ConfigLog(1, 0); }, EndsProgress, false},
  };
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
    for (const bool isOther : {false, true}) {
      for (const int moment : {0, 20, 45, 90}) {
        SCOPED_TRACE(Text("%s %d %d", crossing.name, isOther, moment));
        const bool isPlain = crossing.effect == Effect::None && moment != 45;
        if (isPlain) continue;
        Begin();
        const Effect effect =
            isOther && crossing.isRefusedToOthers ? Effect::Refused : crossing.effect;
        std::uint64_t result = crossing.refusal;
        std::size_t refusals = 0;
        int last = -1;
        bool isCalled = false;
        const bool isUpdated = Update([&](int percent) {
          last = percent;
          if (percent != moment || std::exchange(isCalled, true)) return;
          const auto call = [&] { result = crossing.call(); };
          isOther ? std::thread(call).join() : call();
          refusals = Count({3, crossing.name, kRunning});
        });
        EXPECT_EQ(effect != Effect::Fails, isUpdated);
        EXPECT_EQ(effect == Effect::Fails          ? 0
                  : effect == Effect::EndsProgress ? moment
                                                   : 100,
                  last);
        EXPECT_EQ(effect == Effect::Refused ? 1u : 0u, refusals);
        if (effect == Effect::Refused) {
          EXPECT_EQ(crossing.refusal, result);
        }
        CMsg::Instance().ClearResponders();
        CMsg::Instance().AddResponder(&log);
        QZ_DllPassPara(0);
        if (effect == Effect::Fails) {
          Open();
          EXPECT_TRUE(Update()) << "the hub can be updated after that";
        }
        EXPECT_TRUE(Holds(bytes));
        EXPECT_TRUE(Holds(virtualhub::BuildImage({}, 0x10000), 0, "other")) << "and no other is";
      }
    }
  }
}

TEST_F(CrossingCallsTest, TheCallbackMayTurnToHubsWhenAllIsDone) {
  std::uint16_t version = 0;
  int inner = 0;
  void* second = nullptr;
  const bool isUpdated = Update([&](int percent) {
    if (second != nullptr) {
      inner = percent;
      if (percent == 45) {
        EXPECT_EQ(0u, List()) << "the inner update is protected like any";
      }
    } else if (percent == 100) {
      EXPECT_EQ(1, QZ_ReadDevVersion(handle, &version));
      EXPECT_EQ(2u, List());
      second = QZ_OpenHid(machine->HidInstance("other"));
      EXPECT_EQ(1, QZ_UpdateDev(second, image.path(), OnProgress));
    }
  });
  EXPECT_TRUE(isUpdated);
  EXPECT_EQ(0x0210, version);
  EXPECT_EQ(100, inner);
  EXPECT_TRUE(Holds(bytes));
  EXPECT_TRUE(Holds(bytes, 0, "other"));
  QZ_CloseDev(second);
}

/// Threads that do a job each, again and again.
class Crowd {
 public:
  explicit Crowd(const std::vector<std::function<void()>>& jobs) {
    for (const auto& job : jobs) {
      threads.emplace_back([this, job] {
        for (job(), ++begun; !stop;) job();
      });
    }
    while (begun < jobs.size()) std::this_thread::yield();
  }
  ~Crowd() {
    stop = true;
    for (std::thread& thread : threads) thread.join();
  }

 private:
  std::atomic<bool> stop{false};
  std::atomic<std::size_t> begun{0};
  std::vector<std::thread> threads;
};

/// Whether the thread sleeps, as the system shows it.
bool IsAsleep(pid_t thread) {
  const std::string state = ReadText("/proc/self/task/" + std::to_string(thread) + "/stat");
  return state.compare(state.rfind(')') + 1, 2, " S") == 0;
}

/// Threads that call the library one after the other while a call of another thread has the
/// connection: each waits for its turn when the next one begins. At the end that call returns, and
/// all of them must.
class Queue {
 public:
  Queue(virtualhub::Machine& machine, std::uint32_t hub) : m_Machine(machine) {
    machine.SetExchangeHook([this](const virtualhub::Exchange&) {
      if (m_bTaken.exchange(true)) return;
      while (!m_bFree) std::this_thread::yield();
    });
    m_Threads.emplace_back([hub] {
      std::uint32_t id = 0;
      EXPECT_EQ(1, QZ_GetHubVIDPIDFromHidDevice(hub, &id, &id));
    });
    while (!m_bTaken) std::this_thread::yield();
  }
  ~Queue() {
    m_bFree = true;
    for (std::thread& thread : m_Threads) thread.join();
    m_Machine.SetExchangeHook(nullptr);
  }
  Queue(const Queue&) = delete;
  Queue& operator=(const Queue&) = delete;

  void Add(const std::function<void()>& call) {
    std::atomic<pid_t> number{0};
    m_Threads.emplace_back([&number, call] {
      number = gettid();
      call();
    });
    while (number == 0 || !IsAsleep(number)) std::this_thread::yield();
  }

 private:
  virtualhub::Machine& m_Machine;
  std::atomic<bool> m_bTaken{false}, m_bFree{false};
  std::vector<std::thread> m_Threads;
};

TEST_F(CrossingCallsTest, AllCallsThatWaitForTheirTurnGetIt) {
  std::atomic<int> listed{0}, sent{0};
  {
    Queue queue(*machine, other);
    for (int i = 0; i < 2; ++i) queue.Add([&] { sent += QZ_HidGPIOW(handle, 1, 1) != 1 ? 1 : 0; });
    for (int i = 0; i < 2; ++i) queue.Add([&] { listed += List() == 2 ? 1 : 0; });
  }
  EXPECT_EQ(2, sent);
  EXPECT_EQ(2, listed);
  EXPECT_EQ(kNoHandles, Handles());
}

TEST_F(CrossingCallsTest, AnUpdateThatBeginsRefusesAllCallsThatWaitForTheirTurn) {
  constexpr int kCalls = 4;
  static std::atomic<int> s_returned;
  for (int round = 0; round < 5; ++round) {
    Begin();
    s_returned = 0;
    g_onProgress = [](int percent) {
      while (percent == 0 && s_returned < kCalls) std::this_thread::yield();
    };
    {
      Queue queue(*machine, other);
      for (int i = 0; i < kCalls; ++i) {
        queue.Add([&] { s_returned += QZ_HidGPIOW(handle, 1, 1) == 1 ? 1 : 0; });
      }
      queue.Add([&] { QZ_UpdateDev(handle, image.path(), OnProgress); });
    }
    g_onProgress = kNothing;
    EXPECT_EQ(kCalls, s_returned);
    EXPECT_EQ(static_cast<std::size_t>(kCalls), Count({3, "QZ_HidGPIOW", kRunning}));
  }
}

// A starting thread configures the log on some systems.
TEST_F(CrossingCallsTest, AnUpdateIsNotHarmedByOtherThreadsThatCallAndConfigureTheLog) {
  const auto configure = [] {
    platform::OnThreadAttach();
    QZ_SetLogPath(LogFile());
    QZ_ConfigLog(0, 0);
  };
  const auto useHubs = [this] {
    List();
    QZ_HidGPIOW(handle, 1, 1);
    QZ_CloseDev(QZ_OpenHid(other));
  };
  std::unique_ptr<Crowd> crowd;
  const bool isUpdated = Update([&](int percent) {
    if (percent != 10) return;
    crowd = std::make_unique<Crowd>(std::vector<std::function<void()>>{configure, useHubs});
  });
  EXPECT_TRUE(isUpdated);
  EXPECT_NE(nullptr, crowd);
  crowd.reset();
  EXPECT_TRUE(Holds(bytes));
  EXPECT_TRUE(Holds(virtualhub::BuildImage({}, 0x10000), 0, "other"));
}

TEST_F(CrossingCallsTest, CallsOfSeveralThreadsThatTakeTheConnectionOverWaitForTheOthers) {
  const auto readIds = [this] {
    std::uint32_t vid = 0, pid = 0;
    EXPECT_EQ(1, QZ_GetHubVIDPIDFromHidDevice(other, &vid, &pid));
    EXPECT_EQ(0x2E7Cu, vid);
  };
  const auto share = [this] {
    QZ_HidI2CConfig(handle, 0xA0, 2, 1);
    QZ_HidI2CRead(handle, 0, g_room, 2);
    QZ_HidSetHubGPIO(handle, 1, 1);
  };
  const Crowd crowd({[] { EXPECT_EQ(2u, List()); }, readIds, share});
  for (int i = 0; i < 20; ++i) readIds();
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

TEST_F(CrossingCallsTest, ARefusedListingLeavesItsOutputsAsOneThatFindsNothing) {
  HidDevRecord untouched{};
  HidDevRecord* list = &untouched;
  std::uint32_t count = 7;
  Update([&](int percent) {
    if (percent == 45) QZ_ListAllHidDev(&list, &count);
  });
  EXPECT_EQ(0u, count);
  EXPECT_EQ(&untouched, list);
}

TEST_F(CrossingCallsTest, ACloseByAnotherThreadAfter100PercentTakesEffectWhenTheUpdateHasReturned) {
  const auto isUsable = [this] { return QZ_HidGPIOW(handle, 1, 1) == 0; };
  bool wasUsable = false;
  EXPECT_TRUE(Update([&](int percent) {
    if (percent != 100) return;
    List();
    handle = QZ_OpenHid(machine->HidInstance("hub"));
    std::thread([this] { QZ_CloseDev(handle); }).join();
    wasUsable = isUsable();
  }));
  EXPECT_TRUE(wasUsable) << "the callback has a hub until it is over";
  EXPECT_FALSE(isUsable());
  EXPECT_EQ(kNoHandles, Handles());
}

TEST_F(CrossingCallsTest, AnUpdateInsideAnotherLeavesDeferredClosesToTheOuterOne) {
  std::uint32_t afterInner = kRejected;
  bool isInner = false;
  EXPECT_TRUE(Update([&](int percent) {
    if (percent != 100 || std::exchange(isInner, true)) return;
    std::thread([this] { QZ_CloseDev(handle); }).join();
    List();
    void* const second = QZ_OpenHid(other);
    EXPECT_EQ(1, QZ_UpdateDev(second, image.path(), OnProgress));
    afterInner = QZ_HidI2CConfig(handle, 0xA0, 2, 1);
    QZ_CloseDev(second);
  }));
  EXPECT_EQ(0u, afterInner) << "not closed yet";
  EXPECT_EQ(kRejected, QZ_HidI2CConfig(handle, 0xA0, 2, 1));
}

}  // namespace
}  // namespace qzhid::test
