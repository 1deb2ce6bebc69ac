// Time and memory of complete updates through the exports, and the first listing of a process.
#include <dlfcn.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>

#include "QzHidAPI.h"
#include "machine.h"
#include "rows.h"
#include "virtualhub/hub/image.h"

using namespace qzhid;
using namespace qzhid::bench;

namespace {

constexpr std::uint32_t kKiB = 1024;

/// A hub that is open, and an image for it.
class CUpdate {
 public:
  explicit CUpdate(std::uint32_t size) : m_strImage(TempPath("image")) {
    constexpr std::uint32_t kSmallestBank = 64 * kKiB;
    const virtualhub::Bytes image = virtualhub::BuildImage({}, size);
    std::ofstream(m_strImage, std::ios::binary)
        .write(reinterpret_cast<const char*>(image.data()),
               static_cast<std::streamsize>(image.size()));
    virtualhub::InstallMachine(HubScenario(0, std::max(size, kSmallestBank)));
    HidDevRecord* list = nullptr;
    std::uint32_t count = 0;
    if (QZ_ListAllHidDev(&list, &count) == 0) Fail("no hub is listed");
    m_pHub = QZ_OpenHid(list[0].dwInst);
    QZ_FreeDevList(list);
  }
  ~CUpdate() {
    QZ_CloseDev(m_pHub);
    virtualhub::UninstallMachine();
    std::filesystem::remove(m_strImage);
  }
  CUpdate(const CUpdate&) = delete;
  CUpdate& operator=(const CUpdate&) = delete;

  void Run() const {
    if (QZ_UpdateDev(m_pHub, m_strImage.c_str(), nullptr) == 0) Fail("an update failed");
  }

 private:
  std::string m_strImage;
  void* m_pHub = nullptr;
};

void CountUpdates(int times) {
  const CUpdate update(64 * kKiB);
  for (int i = 0; i < times; ++i) update.Run();
}
const CCounted g_updates{"update", CountUpdates};

/// The straight line through runs of several sizes that has the least relative deviations.
struct Line {
  double fixed = 0, perByte = 0;
  double deviation = 0;  // the largest of all runs, relative to the run's time
};

Line Fit(const std::vector<double>& sizes, const std::vector<double>& seconds) {
  double w = 0, x = 0, y = 0, xx = 0, xy = 0;
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    const double weight = 1 / (seconds[i] * seconds[i]);
    w += weight;
    x += weight * sizes[i];
    y += weight * seconds[i];
    xx += weight * sizes[i] * sizes[i];
    xy += weight * sizes[i] * seconds[i];
  }
  Line line;
  line.perByte = (w * xy - x * y) / (w * xx - x * x);
  line.fixed = (y - line.perByte * x) / w;
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    const double off = line.fixed + line.perByte * sizes[i] - seconds[i];
    line.deviation = std::max(line.deviation, std::abs(off) / seconds[i]);
  }
  return line;
}

void Updates(benchmark::State& state, const char* name) {
  constexpr double kMostDeviation = 0.10;
  const std::vector<std::uint32_t> kib{32, 64, 128, 256, 512, 1024, 2048, 4096};
  std::vector<std::vector<double>> runs(kib.size());
  while (state.KeepRunning()) {
    for (std::size_t i = 0; i < kib.size(); ++i) {
      const CUpdate update(kib[i] * kKiB);
      update.Run();
      for (std::uint32_t run = 0; run < std::max(1u, 1024 / kib[i]); ++run) {
        runs[i].push_back(ProcessorSeconds([&] { update.Run(); }));
      }
    }
    state.SetIterationTime(runs.back().back());
  }
  std::vector<double> sizes, seconds;
  for (std::size_t i = 0; i < kib.size(); ++i) {
    sizes.push_back(kib[i] * kKiB);
    seconds.push_back(Median(runs[i]));
  }
  const Line line = Fit(sizes, seconds);
  Print({name, Text(line.perByte * 1e9, "ns a byte"), Text(line.fixed * 1e6, "us at first"),
         Text(line.deviation * 100, "% off the line"), Text(kMostDeviation * 100, "%")},
        line.deviation <= kMostDeviation);
}
const CRowRunner g_updatesRow{"update", 9, Updates};

/// The number that `work` returns in a child process.
template <class Work>
double InChild(const Work& work) {
  int ends[2];
  if (pipe(ends) != 0) Fail("no pipe");
  const pid_t child = fork();
  if (child == 0) {
    const double value = work();
    _exit(write(ends[1], &value, sizeof(value)) == sizeof(value) ? 0 : 1);
  }
  close(ends[1]);
  double value = 0;
  const bool isRead = child > 0 && read(ends[0], &value, sizeof(value)) == sizeof(value);
  close(ends[0]);
  waitpid(child, nullptr, 0);
  if (!isRead) Fail("a child process has measured nothing");
  return value;
}

/// Memory of this process in bytes: "VmRSS" is what it has now, "VmHWM" the most that it has had.
double MemoryNow(const std::string& field) {
  std::ifstream status("/proc/self/status");
  for (std::string name; status >> name;) {
    double kib = 0;
    if (name == field + ':' && status >> kib) return kib * kKiB;
  }
  Fail("the kernel does not report the memory of a process");
}

/// How much the process grows at most, in a process that has not updated anything yet.
void Memory(benchmark::State& state, const char* name) {
  constexpr double kImage = 4 * kKiB * kKiB, kLimit = 2 * kImage + 2 * kKiB * kKiB;
  const auto measure = [] {
    const CUpdate update(static_cast<std::uint32_t>(kImage));
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << 5 << std::flush;  // the peak is measured from here on
    const double before = MemoryNow("VmRSS");
    if (MemoryNow("VmHWM") - before > kKiB * kKiB) Fail("the peak was before the update");
    update.Run();
    return MemoryNow("VmHWM") - before;
  };
  double growth = 0;
  while (state.KeepRunning()) {
    growth = InChild(measure);
    state.SetIterationTime(1);
  }
  const auto mib = [](double bytes) { return Text(bytes / kKiB / kKiB, "MiB"); };
  Print({name, mib(growth), mib(kImage) + " of image", mib(growth), mib(kLimit)}, growth <= kLimit);
}
const CRowRunner g_memoryRow{"memory", 1, Memory};

void* Load(const char* path) {
  void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) Fail(dlerror());
  return library;
}

void LoadAndList() {
  void* const library = Load(QZ_BENCH_LIBRARY);
  const auto list =
      reinterpret_cast<decltype(&QZ_ListAllHidDev)>(dlsym(library, "QZ_ListAllHidDev"));
  HidDevRecord* records = nullptr;
  std::uint32_t count = 0;
  if (list == nullptr || list(&records, &count) == 0) Fail("the loaded library lists nothing");
}

void LoadEmptyAndAsk() {
  Load(QZ_BENCH_EMPTY_LIBRARY);
  AskPlatform();
}

void FirstList(benchmark::State& state, const char* name) {
  const Pairs pairs = RunPairs(
      state, [] { return InChild([] { return Seconds(LoadAndList); }); },
      [] { return InChild([] { return Seconds(LoadEmptyAndAsk); }); });
  PrintDifference(name, pairs, 1, 5e-3);
}
const CRowRunner g_firstListRow{"load", 51, FirstList};

}  // namespace
