// The rows of the table: measurements in pairs with their baselines.
#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

namespace qzhid::bench {

/// Registers function(state, name, arguments...) to measure the row of that name.
struct CRowRunner {
  template <class... Parameters>
  CRowRunner(const char* name, int iterations,
             void (*function)(benchmark::State&, const char*, Parameters...),
             std::type_identity_t<Parameters>... arguments) {
    benchmark::RegisterBenchmark(
        name, [=](benchmark::State& state) { function(state, name, arguments...); })
        ->UseManualTime()
        ->Iterations(iterations);
  }
};

/// Registers function(times, arguments...) as work that tools count, of the instructions or system
/// calls of the process: "PROGRAM count NAME TIMES" does nothing else. The difference of two runs
/// is the work, without the start.
struct CCounted {
  template <class... Parameters>
  CCounted(const char* name, void (*function)(int times, Parameters...),
           std::type_identity_t<Parameters>... arguments) {
    Register(name, [=](int times) { function(times, arguments...); });
  }

 private:
  static void Register(const char* name, std::function<void(int)> work);
};

/// One line of the table. `figure` is what is compared with the limit.
struct Row {
  std::string name, measured, baseline, figure, limit;
};
void Print(const Row& row, bool isMet);

/// A number with its unit, in about three digits.
std::string Text(double value, const std::string& unit);

/// Processor time of the call in seconds, whatever else the computer does in the meantime. For work
/// of one thread that waits for nothing, and that is long compared with reading that clock twice.
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

/// Seconds of many runs, in pairs of subject and baseline.
struct Pairs {
  void Add(double own, double bare);
  /// Medians of the pairs, because what disturbs a pair disturbs both of its runs.
  double Ratio() const { return Median(ratios); }
  double Difference() const { return Median(differences); }

  std::vector<double> subject, baseline, ratios, differences;
};

/// Runs `subject` and `baseline`, which return their seconds, once in each iteration of the state,
/// in alternating order. The first pair is not counted.
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
/// times are those of one of `count` units of work in a run.
void PrintRatio(const std::string& name, const Pairs& pairs, double count, double limit);
void PrintDifference(const std::string& name, const Pairs& pairs, double count, double limit);

/// A path in the temporary folder.
std::string TempPath(const std::string& name);

/// Ends the program: a row that cannot be measured must not look like one that was not requested.
[[noreturn]] void Fail(const std::string& why);

}  // namespace qzhid::bench
