// Processes that exit, fork or unload the library while it is in use, on the library files.
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

#include "support/library_file.h"
#include "support/temp_file.h"

namespace {

namespace fs = std::filesystem;
using namespace qzhid::test;

constexpr const char* kLibraries[] = {QZ_NATIVE_LIBRARY, QZ_VIRTUAL_LIBRARY};

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
      alarm(60);
      body();
      _exit(99);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
  }

  /// Opens the first hub; null when there is none.
  static void* Open(const LibraryFile& library) {
    const std::vector<HidDevRecord> records = library.List();
    const std::uint32_t number = records.empty() ? 0 : records[0].dwInst;
    return library.Find<decltype(QZ_OpenHid)>("QZ_OpenHid")(number);
  }

  const ScratchFolder folder;
  const std::string image = folder.At("image.bin"), scenario = folder.At("machine.json"),
                    log = folder.At("log.txt");
};

class ExitTest : public ProcessLifeTest,
                 public ::testing::WithParamInterface<std::tuple<const char*, std::string, bool>> {
 protected:
  [[noreturn]] void ExitWithAThreadInside(const LibraryFile& library, int run) {
    const auto& [file, job, isLogging] = GetParam();
    if (isLogging) library.Log(0, log);
    void* const dev = job == "Listing" ? nullptr : Open(library);
    static std::atomic<bool> s_isInside;
    // The thread outlives all objects of this program but these copies.
    const auto list = library.Find<decltype(QZ_ListAllHidDev)>("QZ_ListAllHidDev");
    const auto update = library.Find<decltype(QZ_UpdateDev)>("QZ_UpdateDev");
    const auto set = library.Find<decltype(QZ_HidSetHubGPIO)>("QZ_HidSetHubGPIO");
    const char* const path = strdup(image.c_str());
    std::thread([=, first = job[0]] {
      for (;; s_isInside = true) {
        HidDevRecord* records = nullptr;
        std::uint32_t count = 0;
        if (first == 'L') list(&records, &count);
        if (first == 'U') update(dev, path, nullptr);
        if (first == 'G') set(dev, 1, 1);
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
  const LibraryFile library(std::get<0>(GetParam()));
  for (int run = 0; run < 200; ++run) {
    ASSERT_EQ(0, InChild([&] { ExitWithAThreadInside(library, run); })) << "run " << run;
  }
}

std::string NameOf(const ::testing::TestParamInfo<ExitTest::ParamType>& given) {
  const auto& [file, job, isLogging] = given.param;
  return LibraryName(file) + job + (isLogging ? "Logged" : "");
}

INSTANTIATE_TEST_SUITE_P(All, ExitTest,
                         ::testing::Combine(::testing::ValuesIn(kLibraries),
                                            ::testing::Values("Listing", "Update", "Gpio"),
                                            ::testing::Bool()),
                         NameOf);

std::ptrdiff_t OpenDescriptors() {
  return std::distance(fs::directory_iterator("/proc/self/fd"), {});
}

// The leak checker looks at what is left of memory.
TEST_F(ProcessLifeTest, AnUnloadedLibraryLeavesNothingAlthoughAHubIsOpenAndTheLogIsOn) {
  const auto before = OpenDescriptors();
  for (const char* const file : kLibraries) {
    SCOPED_TRACE(file);
    {
      const LibraryFile library(file);
      library.Log(0, log);
      EXPECT_EQ(file == kLibraries[1], Open(library) != nullptr);
    }
    EXPECT_EQ(nullptr, dlopen(file, RTLD_NOW | RTLD_NOLOAD));
    EXPECT_EQ(before, OpenDescriptors());
  }
}

TEST_F(ProcessLifeTest, TheLibraryTakesNoStandardDescriptorAndLetsNoProgramInheritIts) {
  for (const char* const file : kLibraries) {
    const LibraryFile library(file);
    EXPECT_EQ(0, InChild([&] {
                for (int number = 0; number < 3; ++number) close(number);
                library.Log(0, log);
                Open(library);
                bool isFree = true, isOwn = false;
                for (int number = 0; number < 100; ++number) {
                  const int flags = fcntl(number, F_GETFD);
                  isFree = isFree && (number > 2 || flags < 0);
                  std::error_code none;
                  const auto link = "/proc/self/fd/" + std::to_string(number);
                  if (fs::read_symlink(link, none) == log) isOwn = (flags & FD_CLOEXEC) != 0;
                }
                _exit(isFree && isOwn ? 0 : 1);
              }))
        << file;
  }
}

#ifdef QZ_FORKS_WITH_THREADS  // the sanitizers' own locks do not survive that
TEST_F(ProcessLifeTest, AChildForkedWhileAThreadIsInsideGoesOn) {
  for (const char* const file : kLibraries) {
    SCOPED_TRACE(file);
    const LibraryFile library(file);
    library.Log(0, log);
    void* const dev = Open(library);
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
                  library.Log(3);
                  library.Find<decltype(QZ_CloseDev)>("QZ_CloseDev")(nullptr);
                  Open(library);
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
