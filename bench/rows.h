// The rows of the table: what is measured, in pairs with its baseline.
#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace qzhid::bench {

/// Has function(state, name, arguments...) measure the row of that name when the program runs.
struct CRowRunner {
  template <class Function, class... Arguments>
  CRowRunner(const char* name, int iterations, Function function, Arguments... arguments) {
    benchmark::RegisterBenchmark(
        name, [=](benchmark::State& state) { function(state, name, arguments...); })
        ->UseManualTime()
        ->Iterations(iterations);
  }
};

/// One line of the table. `figure` is what is held against the limit.
struct Row {
  std::string name, measured, baseline, figure, limit;
};
void Print(const Row& row, bool isMet);

/// A number with its unit, in three digits or so.
std::string Text(double value, const std::string& unit);

/// Seconds of the processor that the call takes, whatever else the machine does meanwhile: for work
/// of one thread that waits for nothing, and so long that two looks at that clock do not count.
double ProcessorSeconds(const std::function<void()>& call);

/// Seconds that the call takes.
template <class Call>
double Seconds(const Call& call) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  call();
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double Median(std::vector<double> values);

/// Seconds of many runs, each of the subject beside one of the baseline.
struct Pairs {
  void Add(double own, double bare);
  /// Medians over the pairs, so that what disturbs a pair disturbs both of it.
  double Ratio() const { return Median(ratios); }
  double Difference() const { return Median(differences); }

  std::vector<double> subject, baseline, ratios, differences;
};

/// Runs `subject` and `baseline`, which return their seconds, once an iteration of the state, in
/// alternating order. A first pair is not counted.
template <class Subject, class Baseline>
Pairs RunPairs(benchmark::State& state, const Subject& subject, const Baseline& baseline) {
  Pairs pairs;
  bool isBaselineFirst = false;
  static_cast<void>(subject() + baseline());
  while (state.KeepRunning()) {
    double bare = isBaselineFirst ? baseline() : 0;
    const double own = subject();
    if (!isBaselineFirst) bare = baseline();
    isBaselineFirst = !isBaselineFirst;
    pairs.Add(own, bare);
    state.SetIterationTime(own);
  }
  return pairs;
}

/// Print a row whose ratio, or whose seconds above the baseline's, must not exceed the limit. The
/// times are of one of `count` units of work in a run.
void PrintRatio(const std::string& name, const Pairs& pairs, double count, double limit);
void PrintDifference(const std::string& name, const Pairs& pairs, double count, double limit);

/// A path in the temporary folder.
std::string TempPath(const std::string& name);

/// Ends the program: a row that cannot be measured must not look like one that was not asked for.
[[noreturn]] void Fail(const std::string& why);

}  // namespace qzhid::bench
