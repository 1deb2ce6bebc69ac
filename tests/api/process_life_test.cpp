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
#include <fstream>
#include <thread>

#include "QzHidAPI.h"

// A child that exits with threads in it leaves what they have; the sanitizer asks this.
static bool g_isChild = false;
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" int __lsan_is_turned_off();
extern "C" int __lsan_is_turned_off() { return g_isChild ? 1 : 0; }
// NOLINTEND(bugprone-reserved-identifier)

namespace {

namespace fs = std::filesystem;

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

enum class Job { List, Update, Gpio };

struct Situation {
  const char* name;
  const char* file;
  Job job;
  bool isLogging;
};

class ProcessLifeTest : public ::testing::Test {
 protected:
  ProcessLifeTest() {
    std::ofstream(image, std::ios::binary) << std::string(0x1000, 'i');
    std::ofstream(scenario) << R"({"time": "virtual", "devices": [{"name": "hub", "port": "1"}]})";
    setenv("QZ_VIRTUAL_HUB", scenario.c_str(), 1);
  }
  ~ProcessLifeTest() override {
    std::error_code none;
    fs::remove_all(folder, none);
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

  const fs::path folder = [] {
    std::string name = ::testing::TempDir() + "process_life.XXXXXX";
    return fs::path(mkdtemp(name.data()));
  }();
  const fs::path image = folder / "image.bin", scenario = folder / "machine.json",
                 log = folder / "log.txt";
};

class ExitTest : public ProcessLifeTest, public ::testing::WithParamInterface<Situation> {
 protected:
  [[noreturn]] void ExitWithAThreadInside(const Library& library, int run) {
    const Situation& situation = GetParam();
    if (situation.isLogging) library.LogTo(log.string());
    void* const dev = situation.job == Job::List ? nullptr : library.Open();
    static std::atomic<bool> s_isInside;
    // The thread outlives all objects of this program but these copies.
    const auto list = library.Find<decltype(QZ_ListAllHidDev)>("QZ_ListAllHidDev");
    const auto update = library.Find<decltype(QZ_UpdateDev)>("QZ_UpdateDev");
    const auto set = library.Find<decltype(QZ_HidSetHubGPIO)>("QZ_HidSetHubGPIO");
    const char* const path = strdup(image.c_str());
    std::thread([=, job = situation.job] {
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
  const Library library(GetParam().file);
  for (int run = 0; run < kRuns; ++run) {
    ASSERT_EQ(0, InChild([&] { ExitWithAThreadInside(library, run); })) << "run " << run;
  }
}

constexpr const char* kNative = QZ_NATIVE_LIBRARY;
constexpr const char* kVirtual = QZ_VIRTUAL_LIBRARY;

INSTANTIATE_TEST_SUITE_P(
    All, ExitTest,
    ::testing::Values(Situation{"NativeListing", kNative, Job::List, false},
                      Situation{"NativeListingLogged", kNative, Job::List, true},
                      Situation{"NativeUpdate", kNative, Job::Update, false},
                      Situation{"NativeUpdateLogged", kNative, Job::Update, true},
                      Situation{"NativeGpio", kNative, Job::Gpio, false},
                      Situation{"NativeGpioLogged", kNative, Job::Gpio, true},
                      Situation{"VirtualListing", kVirtual, Job::List, false},
                      Situation{"VirtualListingLogged", kVirtual, Job::List, true},
                      Situation{"VirtualUpdate", kVirtual, Job::Update, false},
                      Situation{"VirtualUpdateLogged", kVirtual, Job::Update, true},
                      Situation{"VirtualGpio", kVirtual, Job::Gpio, false},
                      Situation{"VirtualGpioLogged", kVirtual, Job::Gpio, true}),
    [](const auto& row) { return std::string(row.param.name); });

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
      library.LogTo(log.string());
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
                library.LogTo(log.string());
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
    library.LogTo(log.string());
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
