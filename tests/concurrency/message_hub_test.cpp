// The message hub and log control while several threads use them.
#include <atomic>
#include <thread>

#include "log/dll_responder.h"
#include "support/layer_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;

CMsg& Hub() { return CMsg::Instance(); }

class ConcurrencyTest : public LayerTest {
 protected:
  ConcurrencyTest() {
    static const TempFile file({}, "log.txt");  // the library chooses its log file once a process
    logFile = file.path();
    machine->recorder().Stop();
    EXPECT_EQ(1, QZ_SetLogPath(file.path()));
    QZ_ConfigLog(1, 0);
    QZ_ConfigLog(0, 0);
  }
  ~ConcurrencyTest() override { Hub().ClearResponders(); }

  std::string logFile;
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

constexpr int kLines = 1000;

/// Three threads log kLines lines each.
void LogFromThreads() {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 3; ++thread) {
    threads.emplace_back([thread] {
      const std::string letters(50, static_cast<char>('a' + thread));
      for (int i = 0; i < kLines; ++i) Hub().Log(thread, "thread", "%s %d\n", letters.c_str(), i);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(ConcurrencyTest, LinesOfManyThreadsArriveWholeOneAtATimeAndAll) {
  QZ_ConfigLog(1, 0);
  std::ifstream lines(logFile);
  lines.seekg(0, std::ios::end);
  OrderlyReceiver orderly;
  Hub().AddResponder(&orderly);
  LogFromThreads();
  EXPECT_THAT(orderly.last, ElementsAre(kLines - 1, kLines - 1, kLines - 1));
  Hub().ClearResponders();
  std::array<int, 3> seen{};
  for (std::string line; std::getline(lines, line);) {
    auto& count = seen.at(static_cast<std::size_t>(line.at(32) - 'a'));
    ASSERT_EQ("[2024-03-07, 09:05:02]  thread, " + std::string(50, line[32]) + " " +
                  std::to_string(count++),
              line);
  }
  EXPECT_THAT(seen, ElementsAre(kLines, kLines, kLines));
}

// What RemoveResponder gives back may be destroyed at once; the sanitizers watch.
TEST_F(ConcurrencyTest, LogAndReceiversMayChangeWhileOthersLog) {
  std::atomic<bool> stop{false};
  std::thread configurer([&] {
    for (int i = 0; !stop; ++i) {
      QZ_SetLogPath((logFile + std::to_string(i % 3)).c_str());
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

/// Stays in a delivery until it is told to leave, and then some more.
struct StayingReceiver final : SilentReceiver {
  void OnLog(const char*, int) override {
    entered = true;
    while (!mayLeave) std::this_thread::yield();
    for (int i = 0; i < 2000; ++i) std::this_thread::yield();
    left = true;
  }

  std::atomic<bool> entered{false}, mayLeave{false}, left{false};
};

// If one of the other calls waited for the delivery too, this would never end.
TEST_F(ConcurrencyTest, OnlyRemoveWaitsForADeliveryEvenIfTheReceiverIsGoneFromTheList) {
  StayingReceiver staying;
  Hub().AddResponder(&staying);
  std::thread logger([] { Hub().Log(0, "t", "0"); });
  while (!staying.entered) std::this_thread::yield();
  Hub().AddResponder(&log);
  QZ_ConfigLog(1, 0);
  QZ_ConfigLog(0, 0);
  EXPECT_FALSE(staying.left);
  staying.mayLeave = true;
  Hub().RemoveResponder(&staying);
  EXPECT_TRUE(staying.left);
  logger.join();
}

// On some systems a thread that starts switches the log on.
TEST_F(ConcurrencyTest, ProgressCallbackMayLogCallExportsAndWaitForAThreadThatConfiguresTheLog) {
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
  EXPECT_THAT(log.Lines(),
              ElementsAre(LogLine{2, "host", "at 30"},
                          LogLine{1, "QZ_FreeDevList", "In QZ_FreeAllDevice,Free Memory\n"}));
}

}  // namespace
}  // namespace qzhid::test
