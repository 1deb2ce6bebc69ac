// Logging, on the backend of the real system.
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <fstream>
#include <functional>
#include <thread>

#include "log/log_responder.h"
#include "log/msg.h"
#include "rows.h"

using namespace qzhid;
using namespace qzhid::bench;

namespace {

constexpr const char* kTag = "CHidTransfers::HidDataOut";
constexpr int kLines = 20000;  // of one run

/// Seconds that so many calls take, divided among threads.
double OnThreads(int threads, const std::function<void(int)>& write) {
  return Seconds([&] {
    std::vector<std::thread> running;
    running.reserve(static_cast<std::size_t>(threads));
    for (int i = 0; i < threads; ++i) {
      running.emplace_back([&] {
        for (int line = 0; line < kLines / threads; ++line) write(line);
      });
    }
    for (std::thread& thread : running) thread.join();
  });
}

/// The file's last line without its time stamp.
std::string LastText(const std::string& path) {
  std::ifstream file(path);
  std::string last;
  for (std::string line; std::getline(file, line);) last = line;
  return last.substr(last.find(']'));
}

void Log(benchmark::State& state, const char* name, int threads) {
  const std::string ownPath = TempPath("own.txt"), peerPath = TempPath("peer.txt");
  CLogResponder own(ownPath.c_str());
  CMsg& msg = CMsg::Instance();
  msg.AddResponder(&own);
  const auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(peerPath, true);
  spdlog::logger peer("peer", sink);
  peer.set_pattern("[%Y-%m-%d, %H:%M:%S]  %v");
  peer.flush_on(spdlog::level::trace);

  const Pairs pairs = RunPairs(
      state,
      [&] {
        return OnThreads(
            threads, [&](int line) { msg.Log(3, kTag, "Set Report Fail,ErrorCode:%d\n", line); });
      },
      [&] {
        return OnThreads(
            threads, [&](int line) { peer.error("{}, Set Report Fail,ErrorCode:{}", kTag, line); });
      });
  msg.RemoveResponder(&own);
  if (threads == 1 && LastText(ownPath) != LastText(peerPath)) Fail("the texts differ");

  // Two more system calls for each line than the peer, to keep signals away from the host.
  constexpr double kLeastRate = 0.7;
  const double rate = 1 / pairs.Ratio();
  const auto lines = [](const std::vector<double>& seconds) {
    return Text(kLines / Median(seconds) / 1000, "thousand lines/s");
  };
  Print({name, lines(pairs.subject), lines(pairs.baseline), Text(rate, "times the rate"),
         Text(kLeastRate, "times the rate")},
        rate >= kLeastRate);
}
const CRowRunner g_logRows[] = {{"log/one_thread", 101, Log, 1}, {"log/four_threads", 101, Log, 4}};

void CountLines(int times, bool isHeard) {
  CLogResponder file(TempPath("own.txt").c_str());
  if (isHeard) CMsg::Instance().AddResponder(&file);
  for (int line = 0; line < times; ++line) {
    CMsg::Instance().Log(3, kTag, "Set Report Fail,ErrorCode:%d\n", line);
  }
  CMsg::Instance().RemoveResponder(&file);
}
const CCounted g_lines[] = {{"log/heard", CountLines, true}, {"log/unheard", CountLines, false}};

void LogUnheard(benchmark::State& state, const char* name) {
  CMsg& msg = CMsg::Instance();
  const Pairs pairs = RunPairs(
      state,
      [&] {
        return Seconds([&] {
          for (int line = 0; line < kLines; ++line) {
            msg.Log(3, kTag, "Set Report Fail,ErrorCode:%d\n", line);
          }
        });
      },
      [&] {
        return Seconds([&] {
          for (int line = 0; line < kLines; ++line) {
            char text[1024];
            benchmark::DoNotOptimize(text);
            std::snprintf(text, sizeof(text), "%s, Set Report Fail,ErrorCode:%d\n", kTag, line);
          }
        });
      });
  PrintRatio(name, pairs, kLines, 1.5);
}
const CRowRunner g_logUnheardRow{"log/unheard", 51, LogUnheard};

}  // namespace
