// The message hub and log control while several threads use them.
#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "log/dll_responder.h"
#include "support/layer_test.h"

namespace qzhid::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;

CMsg& Hub() { return CMsg::Instance(); }

/// Acts in a delivery of either kind.
struct ActingReceiver final : SilentReceiver {
  explicit ActingReceiver(std::function<void()> action) : act(std::move(action)) {}
  void OnLog(const char*, int) override { act(); }
  void OnProgress(int) override { act(); }

  const std::function<void()> act;
};

class MessageHubTest : public LayerTest {
 protected:
  MessageHubTest() {
    machine->recorder().Stop();
    Hub().ClearResponders();
  }
  ~MessageHubTest() override { Hub().ClearResponders(); }

  /// Delivers on another thread, to a receiver that stays until it may leave, and some more.
  void Enter(const std::function<void()>& deliver) {
    Hub().ClearResponders();
    hasEntered = mayLeave = hasLeft = false;
    staying = std::make_unique<ActingReceiver>([this] {
      hasEntered = true;
      while (!mayLeave) std::this_thread::yield();
      for (int i = 0; i < 2000; ++i) std::this_thread::yield();
      hasLeft = true;
    });
    Hub().AddResponder(staying.get());
    other = std::thread(deliver);
    while (!hasEntered) std::this_thread::yield();
  }

  const ScratchFolder folder;
  std::unique_ptr<IResponder> staying;
  std::atomic<bool> hasEntered, mayLeave, hasLeft;
  std::thread other;
};

/// Notices lines that overtake others of their thread, and deliveries that overlap.
struct OrderlyReceiver final : SilentReceiver {
  void OnLog(const char* line, int level) override {
    EXPECT_FALSE(isInside.exchange(true));
    const std::string text(line);
    const int number = std::stoi(text.substr(text.rfind(' ')));
    EXPECT_LT(std::exchange(last[static_cast<std::size_t>(level)], number), number);
    isInside = false;
  }

  std::atomic<bool> isInside{false};
  std::array<int, 3> last{-1, -1, -1};  // of each thread, which logs at a level of its own
};

constexpr int kCount = 1000;

/// Three threads log kCount lines each.
void LogFromThreads() {
  const auto log = [](int thread) {
    for (int i = 0; i < kCount; ++i) Hub().Log(thread, "thread", "%d\n", i);
  };
  std::thread first(log, 0), second(log, 1);
  log(2);
  first.join();
  second.join();
}

TEST_F(MessageHubTest, LinesOfManyThreadsArriveOneAtATimeInTheOrderOfEachThread) {
  OrderlyReceiver orderly;
  Hub().AddResponder(&orderly);
  LogFromThreads();
  EXPECT_THAT(orderly.last, Each(kCount - 1));
}

// What RemoveResponder gives back may be destroyed at once; the sanitizers watch.
TEST_F(MessageHubTest, TheLogAndTheReceiversMayChangeWhileOthersLog) {
  std::atomic<bool> stop{false};
  std::thread configurer([&] {
    for (int i = 0; !stop; ++i) {
      QZ_SetLogPath(folder.At("log" + std::to_string(i % 3)).c_str());
      QZ_ConfigLog(i % 3 != 0, i % 4);
    }
  });
  std::thread loggers([&] {
    LogFromThreads();
    stop = true;
  });
  while (!stop) {
    const auto receiver = std::make_unique<OrderlyReceiver>();
    Hub().AddResponder(receiver.get());
    std::this_thread::yield();
    Hub().RemoveResponder(receiver.get());
  }
  loggers.join();
  configurer.join();
}

const std::function<void()> kLog = [] { Hub().Log(0, "t", "0"); },
                            kReport = [] { Hub().Progress(1); };

TEST_F(MessageHubTest, RemoveWaitsForADeliveryOnAnotherThreadAndTheReceiverMayBeDestroyedThen) {
  const struct {
    const char* name;
    std::function<void()> deliver;      // on another thread
    std::function<void()> surrounding;  // the delivery that the receiver is removed from, if any
  } rows[] = {{"a line", kLog, nullptr},
              {"progress", kReport, nullptr},
              {"a line, from progress", kLog, kReport},
              {"progress, from a line", kReport, kLog}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Enter(row.deliver);
    bool hasWaited = false;
    ActingReceiver remover([&] {
      mayLeave = true;
      Hub().RemoveResponder(staying.get());
      hasWaited = hasLeft;
      staying.reset();
    });
    if (row.surrounding) Hub().ClearResponders();
    Hub().AddResponder(&remover);
    row.surrounding ? row.surrounding() : remover.act();
    EXPECT_TRUE(hasWaited);
    other.join();
  }
}

// If one of these calls waited for the delivery, this would never end.
TEST_F(MessageHubTest, NothingButRemoveWaitsForADelivery) {
  Enter(kLog);
  Hub().AddResponder(&log);
  QZ_ConfigLog(1, 0);
  QZ_ConfigLog(0, 0);
  EXPECT_FALSE(hasLeft);
  mayLeave = true;
  Hub().RemoveResponder(staying.get());
  EXPECT_TRUE(hasLeft) << "even though it is gone from the list";
  other.join();
}

// On some systems a thread that starts switches the log on.
TEST_F(MessageHubTest, AProgressCallbackMayLogCallExportsAndWaitForAThreadThatConfiguresTheLog) {
  Hub().AddResponder(&log);
  CDllResponder responder([](int percent) {
    Hub().Log(2, "host", "at %d", percent);
    QZ_FreeDevList(nullptr);
    std::thread([] { EXPECT_EQ(1, QZ_ConfigLog(1, 0)); }).join();
  });
  Hub().AddResponder(&responder);
  std::thread([] { Hub().Progress(30); }).join();
  Hub().AddResponder(&log);
  Hub().Progress(40);  // the configuration has dropped the callback
  EXPECT_THAT(Logged(),
              ElementsAre(LogLine{2, "host", "at 30"},
                          LogLine{1, "QZ_FreeDevList", "In QZ_FreeAllDevice,Free Memory\n"}));
}

}  // namespace
}  // namespace qzhid::test
