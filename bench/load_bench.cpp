// Loading the library and listing for the first time, each time in a new process.
#include <dlfcn.h>

#include "QzHidAPI.h"
#include "child.h"
#include "machine.h"
#include "rows.h"

namespace qzhid::bench {

namespace {

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
QZ_ROW(FirstList, "load", 51);

}  // namespace

}  // namespace qzhid::bench
