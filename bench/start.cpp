// start QZHID: prints the rows that compare "qzhid list" as a whole process with a program that
// does nothing, on the virtual library and on that of the system. Needs no library, because the
// kernel counts the memory of a process that starts another as the other's, too.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

constexpr int kRuns = 101;
constexpr double kMostMs = 5;  // more than a program that does nothing

struct Cost {
  std::vector<double> ms;
  long peakKiB = 0;
};

/// Runs a program to its end.
void Run(std::vector<std::string> words, Cost& cost) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t process = 0;
  int status = 0;
  rusage usage{};
  const auto start = std::chrono::steady_clock::now();
  const bool isRun =
      posix_spawn(&process, arguments[0], &files, nullptr, arguments.data(), environ) == 0 &&
      wait4(process, &status, 0, &usage) == process && status == 0;
  const auto end = std::chrono::steady_clock::now();
  posix_spawn_file_actions_destroy(&files);
  if (!isRun) {
    std::fprintf(stderr, "not measured: %s failed\n", arguments[0]);
    std::exit(1);
  }
  cost.ms.push_back(std::chrono::duration<double, std::milli>(end - start).count());
  cost.peakKiB = std::max(cost.peakKiB, usage.ru_maxrss);
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void PrintRow(const char* name, const std::vector<std::string>& command) {
  Cost own, nothing;
  std::vector<double> differences;
  for (int run = 0; run < kRuns; ++run) {
    Run(command, own);
    Run({"/bin/true"}, nothing);
    differences.push_back(own.ms.back() - nothing.ms.back());
  }
  const double more = Median(differences);
  const auto mib = [](const Cost& cost) { return static_cast<double>(cost.peakKiB) / 1024; };
  std::printf("%s\t%.2f ms, %.1f MiB\t%.2f ms, %.1f MiB\t%.2f ms more\t%.0f ms more\t%s\n", name,
              Median(own.ms), mib(own), Median(nothing.ms), mib(nothing), more, kMostMs,
              more <= kMostMs ? "pass" : "MISS");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 1;
  const std::string scenario = std::filesystem::temp_directory_path() / "qzhid-bench-start.json";
  // The waits for a hub are not part of the start.
  std::ofstream(scenario) << R"({"time": "virtual", "devices": [{"name": "hub", "port": "1"}]})";
  setenv("QZ_VIRTUAL_HUB", scenario.c_str(), 1);
  PrintRow("start/virtual", {argv[1], "--virtual", "list"});
  PrintRow("start/system", {argv[1], "list"});
  std::filesystem::remove(scenario);
  return 0;
}
