// Processes that exit, fork or unload the library while it is in use, on the library files.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

#include "QzHidAPI.h"
#include "support/temp_file.h"

// A child that exits with threads in it leaves what they have; the sanitizer asks this.
static bool g_isChild = false;
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" int __lsan_is_turned_off();
extern "C" int __lsan_is_turned_off() { return g_isChild ? 1 : 0; }
// NOLINTEND(bugprone-reserved-identifier)

namespace {

namespace fs = std::filesystem;
using namespace qzhid::test;

/// The exports that the tests use, of one library file.
class Library {
 public:
  explicit Library(const char* file) : m_pHandle(dlopen(file, RTLD_NOW | RTLD_LOCAL)) {
    EXPECT_NE(nullptr, m_pHandle) << dlerror();
  }
  ~Library() { dlclose(m_pHandle); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  template <class Function>
  Function* Find(const char* name) const {
    return reinterpret_cast<Function*>(dlsym(m_pHandle, name));
  }

  void LogTo(const std::string& path) const {
    Find<decltype(QZ_SetLogPath)>("QZ_SetLogPath")(path.c_str());
    Find<decltype(QZ_ConfigLog)>("QZ_ConfigLog")(1, 0);
  }
  void List() const {
    HidDevRecord* list = nullptr;
    std::uint32_t count = 0;
    Find<decltype(QZ_ListAllHidDev)>("QZ_ListAllHidDev")(&list, &count);
    Find<decltype(QZ_FreeDevList)>("QZ_FreeDevList")(list);
  }
  /// The first hub; null when there is none.
  void* Open() const {
    HidDevRecord* list = nullptr;
    std::uint32_t count = 0;
    Find<decltype(QZ_ListAllHidDev)>("QZ_ListAllHidDev")(&list, &count);
    const std::uint32_t devInst = list != nullptr ? list->dwInst : 0;
    Find<decltype(QZ_FreeDevList)>("QZ_FreeDevList")(list);
    return Find<decltype(QZ_OpenHid)>("QZ_OpenHid")(devInst);
  }

 private:
  void* const m_pHandle;
};

constexpr const char* kNative = QZ_NATIVE_LIBRARY;
constexpr const char* kVirtual = QZ_VIRTUAL_LIBRARY;

class ProcessLifeTest : public ::testing::Test {
 protected:
  ProcessLifeTest() {
    WriteText(image, std::string(0x1000, 'i'));
    WriteText(scenario, R"({"time": "virtual", "devices": [{"name": "hub", "port": "1"}]})");
    setenv("QZ_VIRTUAL_HUB", scenario.c_str(), 1);
  }

  /// Runs that in a child process; its wait status, 0 after success.
  template <class Body>
  static int InChild(const Body& body) {
    const pid_t child = fork();
    if (child == 0) {
      g_isChild = true;
      alarm(60);
      body();
      _exit(99);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
  }

  const ScratchFolder folder;
  const std::string image = folder.At("image.bin"), scenario = folder.At("machine.json"),
                    log = folder.At("log.txt");
};

enum class Job { List, Update, Gpio };
using Situation = std::tuple<const char*, Job, bool>;  // library, what the thread does, logging

class ExitTest : public ProcessLifeTest, public ::testing::WithParamInterface<Situation> {
 protected:
  [[noreturn]] void ExitWithAThreadInside(const Library& library, int run) {
    const auto [file, job, isLogging] = GetParam();
    if (isLogging) library.LogTo(log);
    void* const dev = job == Job::List ? nullptr : library.Open();
    static std::atomic<bool> s_isInside;
    // The thread outlives all objects of this program but these copies.
    const auto list = library.Find<decltype(QZ_ListAllHidDev)>("QZ_ListAllHidDev");
    const auto update = library.Find<decltype(QZ_UpdateDev)>("QZ_UpdateDev");
    const auto set = library.Find<decltype(QZ_HidSetHubGPIO)>("QZ_HidSetHubGPIO");
    const char* const path = strdup(image.c_str());
    std::thread([=, job = job] {
      for (;; s_isInside = true) {
        HidDevRecord* records = nullptr;
        std::uint32_t count = 0;
        if (job == Job::List) list(&records, &count);
        if (job == Job::Update) update(dev, path, nullptr);
        if (job == Job::Gpio) set(dev, 1, 1);
        std::free(records);
      }
    }).detach();
    while (!s_isInside) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::microseconds(run * 7 % 500));  // at any moment
    if (run % 2 == 0) std::atexit([] { usleep(5000); });
    std::exit(0);
  }
};

TEST_P(ExitTest, AProcessMayExitWhileAThreadIsInside) {
  constexpr int kRuns = 200;
  const Library library(std::get<0>(GetParam()));
  for (int run = 0; run < kRuns; ++run) {
    ASSERT_EQ(0, InChild([&] { ExitWithAThreadInside(library, run); })) << "run " << run;
  }
}

std::string NameOf(const ::testing::TestParamInfo<Situation>& info) {
  const auto [file, job, isLogging] = info.param;
  constexpr const char* kJobs[] = {"Listing", "Update", "Gpio"};
  return std::string(file == kNative ? "Native" : "Virtual") + kJobs[static_cast<int>(job)] +
         (isLogging ? "Logged" : "");
}

INSTANTIATE_TEST_SUITE_P(All, ExitTest,
                         ::testing::Combine(::testing::Values(kNative, kVirtual),
                                            ::testing::Values(Job::List, Job::Update, Job::Gpio),
                                            ::testing::Bool()),
                         NameOf);

std::ptrdiff_t OpenDescriptors() {
  return std::distance(fs::directory_iterator("/proc/self/fd"), {});
}

// The leak checker looks at what is left of memory.
TEST_F(ProcessLifeTest, AnUnloadedLibraryLeavesNothingAlthoughAHubIsOpenAndTheLogIsOn) {
  const auto before = OpenDescriptors();
  for (const char* const file : {kNative, kVirtual}) {
    SCOPED_TRACE(file);
    {
      const Library library(file);
      library.LogTo(log);
      EXPECT_EQ(file == kVirtual, library.Open() != nullptr);
    }
    EXPECT_EQ(nullptr, dlopen(file, RTLD_NOW | RTLD_NOLOAD));
    EXPECT_EQ(before, OpenDescriptors());
  }
}

TEST_F(ProcessLifeTest, TheLibraryTakesNoStandardDescriptorAndLetsNoProgramInheritIts) {
  for (const char* const file : {kNative, kVirtual}) {
    const Library library(file);
    EXPECT_EQ(0, InChild([&] {
                for (int number = 0; number < 3; ++number) close(number);
                library.LogTo(log);
                library.Open();
                const bool isFree =
                    fcntl(0, F_GETFD) < 0 && fcntl(1, F_GETFD) < 0 && fcntl(2, F_GETFD) < 0;
                bool isOwn = false;
                for (int number = 3; number < 100; ++number) {
                  char path[64];
                  std::snprintf(path, sizeof(path), "/proc/self/fd/%d", number);
                  std::error_code none;
                  if (fs::read_symlink(path, none) != log) continue;
                  isOwn = (fcntl(number, F_GETFD) & FD_CLOEXEC) != 0;
                }
                _exit(isFree && isOwn ? 0 : 1);
              }))
        << file;
  }
}

#ifdef QZ_FORKS_WITH_THREADS  // the sanitizers' own locks do not survive that
TEST_F(ProcessLifeTest, AChildForkedWhileAThreadIsInsideGoesOn) {
  for (const char* const file : {kNative, kVirtual}) {
    SCOPED_TRACE(file);
    const Library library(file);
    library.LogTo(log);
    void* const dev = library.Open();
    std::atomic<bool> stop{false};
    std::thread inside([&] {
      for (int i = 0; !stop; ++i) {
        library.Find<decltype(QZ_HidSetHubGPIO)>("QZ_HidSetHubGPIO")(dev, 1, 1);
        if (i % 8 == 0) library.List();
      }
    });
    for (int run = 0; run < 200; ++run) {
      ASSERT_EQ(0, InChild([&] {
                  library.List();
                  library.Find<decltype(QZ_ConfigLog)>("QZ_ConfigLog")(1, 3);
                  library.Find<decltype(QZ_CloseDev)>("QZ_CloseDev")(nullptr);
                  library.Open();
                  _exit(0);
                }))
          << "run " << run;
    }
    stop = true;
    inside.join();
  }
}
#endif

}  // namespace
