#include "rows.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <map>

namespace qzhid::bench {

namespace {

std::string TimeText(double seconds) {
  if (std::abs(seconds) < 1e-6) return Text(seconds * 1e9, "ns");
  if (std::abs(seconds) < 1e-3) return Text(seconds * 1e6, "us");
  return Text(seconds * 1e3, "ms");
}

/// Discards what the harness would print.
class CSilentReporter final : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>&) override {}
};

std::map<std::string, std::function<void(int)>>& Counted() {
  static std::map<std::string, std::function<void(int)>> works;
  return works;
}

void RunCounted(const std::string& name, int times) {
  const auto work = Counted().find(name);
  if (work == Counted().end()) Fail("no such work: " + name);
  work->second(times);
}

}  // namespace

void CCounted::Register(const char* name, std::function<void(int)> work) {
  Counted()[name] = std::move(work);
}

void Print(const Row& row, bool isMet) {
  std::printf("%s\t%s\t%s\t%s\t%s\t%s\n", row.name.c_str(), row.measured.c_str(),
              row.baseline.c_str(), row.figure.c_str(), row.limit.c_str(), isMet ? "pass" : "MISS");
}

std::string Text(double value, const std::string& unit) {
  char text[64];
  const int places = std::abs(value) < 2 ? 3 : std::abs(value) < 100 ? 1 : 0;
  std::snprintf(text, sizeof(text), "%.*f %s", places, value, unit.c_str());
  return text;
}

double ProcessorSeconds(const std::function<void()>& call) {
  const auto now = [] {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
  };
  const double start = now();
  call();
  return now() - start;
}

double Median(std::vector<double> values) {
  if (values.empty()) Fail("nothing was measured");
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void Pairs::Add(double own, double bare) {
  subject.push_back(own);
  baseline.push_back(bare);
  ratios.push_back(own / bare);
  differences.push_back(own - bare);
}

void PrintRatio(const std::string& name, const Pairs& pairs, double count, double limit) {
  Print({name, TimeText(Median(pairs.subject) / count), TimeText(Median(pairs.baseline) / count),
         Text(pairs.Ratio(), "times"), Text(limit, "times")},
        pairs.Ratio() <= limit);
}

void PrintDifference(const std::string& name, const Pairs& pairs, double count, double limit) {
  const double more = pairs.Difference() / count;
  Print({name, TimeText(Median(pairs.subject) / count), TimeText(Median(pairs.baseline) / count),
         TimeText(more) + " more", TimeText(limit) + " more"},
        more <= limit);
}

std::string TempPath(const std::string& name) {
  return (std::filesystem::temp_directory_path() / ("qzhid-bench-" + name)).string();
}

void Fail(const std::string& why) {
  std::fprintf(stderr, "not measured: %s\n", why.c_str());
  std::exit(1);
}

}  // namespace qzhid::bench

int main(int argc, char** argv) {
  if (argc == 4 && argv[1] == std::string("count")) {
    qzhid::bench::RunCounted(argv[2], std::atoi(argv[3]));
    return 0;
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  qzhid::bench::CSilentReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  return 0;
}
