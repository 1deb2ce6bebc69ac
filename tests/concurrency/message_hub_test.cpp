// The message hub and log control while several threads use them.
#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "log/dll_responder.h"
#include "log/log_responder.h"
#include "support/layer_test.h"

namespace qzhid::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;

CMsg& Hub() { return CMsg::Instance(); }

class MessageHubTest : public LayerTest {
 protected:
  MessageHubTest() {
    machine->recorder().Stop();
    Hub().ClearResponders();
  }
  ~MessageHubTest() override { Hub().ClearResponders(); }

  const ScratchFolder folder;
  const std::string file = folder.At("log");
};

/// Notices lines that overtake others of their thread; ThreadSanitizer notices deliveries that
/// overlap, as nothing is guarded here.
struct OrderlyReceiver final : SilentReceiver {
  void OnLog(const char* line, int level) override {
    const std::string text(line);
    const int number = std::stoi(text.substr(text.rfind(' ')));
    EXPECT_LT(last[static_cast<std::size_t>(level)], number);
    last[static_cast<std::size_t>(level)] = number;
  }

  std::array<int, 3> last{-1, -1, -1};  // of each thread, which logs at a level of its own
};

constexpr int kCount = 1000;

/// Three threads log kCount lines each.
void LogFromThreads() {
  const auto log = [](int thread) {
    const std::string letters(50, static_cast<char>('a' + thread));
    for (int i = 0; i < kCount; ++i) Hub().Log(thread, "thread", "%s %d\n", letters.c_str(), i);
  };
  std::thread first(log, 0), second(log, 1);
  log(2);
  first.join();
  second.join();
}

TEST_F(MessageHubTest, LinesOfManyThreadsArriveWholeAndOneAtATime) {
  CLogResponder written(file.c_str());
  OrderlyReceiver orderly;
  Hub().AddResponder(&written);
  Hub().AddResponder(&orderly);
  LogFromThreads();
  EXPECT_THAT(orderly.last, Each(kCount - 1));
  std::ifstream lines(file);
  std::array<int, 3> seen{};
  for (std::string line; std::getline(lines, line);) {
    const char letter = line.at(32);
    const std::string number = std::to_string(seen.at(static_cast<std::size_t>(letter - 'a'))++);
    ASSERT_EQ("[2024-03-07, 09:05:02]  thread, " + std::string(50, letter) + " " + number, line);
  }
  EXPECT_THAT(seen, Each(kCount));
}

// What RemoveResponder gives back may be destroyed at once; the sanitizers watch.
TEST_F(MessageHubTest, TheLogAndTheReceiversMayChangeWhileOthersLog) {
  std::atomic<bool> stop{false};
  std::thread configurer([&] {
    for (int i = 0; !stop; ++i) {
      QZ_SetLogPath((file + std::to_string(i % 3)).c_str());
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

/// Acts in a delivery of either kind.
struct ActingReceiver final : SilentReceiver {
  explicit ActingReceiver(std::function<void()> action) : act(std::move(action)) {}
  void OnLog(const char*, int) override { act(); }
  void OnProgress(int) override { act(); }

  const std::function<void()> act;
};

/// A stay in a delivery until it may end, and some more.
struct Stay {
  std::unique_ptr<IResponder> Receiver() {
    return std::make_unique<ActingReceiver>([this] {
      entered = true;
      while (!mayLeave) std::this_thread::yield();
      for (int i = 0; i < 2000; ++i) std::this_thread::yield();
      left = true;
    });
  }
  std::atomic<bool> entered{false}, mayLeave{false}, left{false};
};

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
    Hub().ClearResponders();
    Stay stay;
    auto staying = stay.Receiver();
    Hub().AddResponder(staying.get());
    std::thread other(row.deliver);
    while (!stay.entered) std::this_thread::yield();
    bool hasWaited = false;
    ActingReceiver remover([&] {
      stay.mayLeave = true;
      Hub().RemoveResponder(staying.get());
      hasWaited = stay.left;
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
  Stay stay;
  const auto staying = stay.Receiver();
  Hub().AddResponder(staying.get());
  std::thread logger(kLog);
  while (!stay.entered) std::this_thread::yield();
  Hub().AddResponder(&log);
  QZ_ConfigLog(1, 0);
  QZ_ConfigLog(0, 0);
  EXPECT_FALSE(stay.left);
  stay.mayLeave = true;
  Hub().RemoveResponder(staying.get());
  EXPECT_TRUE(stay.left) << "even though it is gone from the list";
  logger.join();
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
