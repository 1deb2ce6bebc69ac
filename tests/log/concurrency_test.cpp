// The message hub and log control while several threads use them.
#include <atomic>
#include <chrono>
#include <sstream>
#include <thread>

#include "log/dll_responder.h"
#include "support/library_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;

CMsg& Hub() { return CMsg::Instance(); }

/// The log file of this process; the library chooses it once.
struct ProcessLogFile {
  ~ProcessLogFile() { std::remove(path.c_str()); }
  const std::string path =
      ::testing::TempDir() + "concurrency" +
      std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()) + ".txt";
};

class ConcurrencyTest : public ::testing::Test {
 protected:
  ConcurrencyTest() {
    virtualhub::InstallWorld(virtualhub::DefaultScenario());
    EXPECT_EQ(1, QZ_SetLogPath(LogFile().c_str()));
    QZ_ConfigLog(1, 0);
    QZ_ConfigLog(0, 0);
  }
  ~ConcurrencyTest() override {
    Hub().ClearResponders();
    virtualhub::UninstallWorld();
  }

  static const std::string& LogFile() {
    static const ProcessLogFile file;
    return file.path;
  }
  static std::string LogText() {
    std::ifstream file(LogFile());
    return {std::istreambuf_iterator<char>(file), {}};
  }
};

/// Notices deliveries that overlap, and lines that overtake others of their thread.
struct OrderlyReceiver final : SilentReceiver {
  void OnLog(const char* line, int level) override {
    EXPECT_FALSE(busy);  // neither this flag nor the numbers are guarded here
    busy = true;
    const std::string text(line);
    const int number = std::stoi(text.substr(text.rfind(' ')));
    EXPECT_LT(last[static_cast<std::size_t>(level)], number);
    last[static_cast<std::size_t>(level)] = number;
    busy = false;
  }

  bool busy = false;
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
  const std::size_t before = LogText().size();
  OrderlyReceiver orderly;
  Hub().AddResponder(&orderly);
  LogFromThreads();
  Hub().ClearResponders();
  EXPECT_THAT(orderly.last, ElementsAre(kLines - 1, kLines - 1, kLines - 1));
  std::istringstream lines(LogText().substr(before));
  std::array<int, 3> seen{};
  for (std::string line; std::getline(lines, line);) {
    auto& count = seen.at(static_cast<std::size_t>(line.at(32) - 'a'));
    ASSERT_EQ("[2024-03-07, 09:05:02]  thread, " + std::string(50, line[32]) + " " +
                  std::to_string(count++),
              line);
  }
  EXPECT_THAT(seen, ElementsAre(kLines, kLines, kLines));
}

TEST_F(ConcurrencyTest, LoggingMayBeReconfiguredWhileOthersLog) {
  std::atomic<bool> stop{false};
  OrderlyReceiver orderly;
  std::thread configurer([&] {
    for (int i = 0; !stop; ++i) {
      QZ_SetLogPath((LogFile() + std::to_string(i % 3)).c_str());
      QZ_ConfigLog(i % 3 != 0, i % 4);
    }
  });
  std::thread registrar([&] {
    while (!stop) {
      Hub().AddResponder(&orderly);
      Hub().RemoveResponder(&orderly);
    }
  });
  LogFromThreads();
  stop = true;
  configurer.join();
  registrar.join();
  Hub().ClearResponders();
  LogCapture capture;
  Hub().Log(3, "t", "still works");
  EXPECT_EQ(1u, capture.lines.size());
}

// What RemoveResponder gives back may be destroyed at once; the sanitizers watch.
TEST_F(ConcurrencyTest, RemovedReceiverMayBeDestroyedWhileOthersLog) {
  std::atomic<bool> stop{false};
  std::thread logger([&] {
    for (int i = 0; !stop; ++i) Hub().Log(0, "t", "%d", i);
  });
  for (int i = 0; i < 300; ++i) {
    const auto receiver = std::make_unique<OrderlyReceiver>();
    Hub().AddResponder(receiver.get());
    std::this_thread::yield();
    Hub().RemoveResponder(receiver.get());
  }
  stop = true;
  logger.join();
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
  for (const bool reconfigure : {false, true}) {
    StayingReceiver staying;
    SilentReceiver silent;
    Hub().AddResponder(&staying);
    std::thread logger([] { Hub().Log(0, "t", "0"); });
    while (!staying.entered) std::this_thread::yield();
    Hub().AddResponder(&silent);
    if (reconfigure) {
      QZ_SetLogPath((LogFile() + "x").c_str());
      QZ_ConfigLog(1, 0);
      QZ_ConfigLog(0, 0);
    }
    EXPECT_FALSE(staying.left);
    staying.mayLeave = true;
    Hub().RemoveResponder(&staying);
    EXPECT_TRUE(staying.left);
    logger.join();
    Hub().RemoveResponder(&silent);
  }
}

// On some systems a thread that starts switches the log on.
TEST_F(ConcurrencyTest, ProgressCallbackMayLogCallExportsAndWaitForAThreadThatConfiguresTheLog) {
  LogCapture capture;
  CDllResponder without(nullptr), responder([](int percent) {
    Hub().Log(2, "host", "at %d", percent);
    QZ_FreeDevList(nullptr);
    std::thread([] { EXPECT_EQ(1, QZ_ConfigLog(1, 0)); }).join();
  });
  Hub().AddResponder(&without);
  Hub().AddResponder(&responder);
  std::thread([] { Hub().Progress(30); }).join();
  Hub().AddResponder(&capture);
  Hub().Progress(40);  // the configuration has dropped the callback
  EXPECT_THAT(capture.lines,
              ElementsAre(LogLine{2, "host", "at 30"},
                          LogLine{1, "QZ_FreeDevList", "In QZ_FreeAllDevice,Free Memory\n"}));
}

}  // namespace
}  // namespace qzhid::test
