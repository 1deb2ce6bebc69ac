// The crash record, left by processes that die.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "api/api_test.h"

namespace qzhid::test {
namespace {

namespace fs = std::filesystem;

// Sanitizers must not take the signals.
constexpr const char* kSanitizerOptions =
    "handle_segv=0:handle_abort=0:handle_sigbus=0:handle_sigill=0:handle_sigfpe=0:use_sigaltstack="
    "0";

class CrashRecordTest : public ::testing::Test {
 protected:
  CrashRecordTest() { fs::create_directory(folder); }
  ~CrashRecordTest() override { fs::remove_all(folder); }

  /// Runs the crasher in the folder; its wait status.
  int Crash(const char* how) {
    const pid_t child = fork();
    if (child == 0) {
      const rlimit noCore{0, 0};
      const rlimit processorSeconds{30, 30};  // a handler must not go round in circles
      setrlimit(RLIMIT_CORE, &noCore);
      setrlimit(RLIMIT_CPU, &processorSeconds);
      setenv("ASAN_OPTIONS", kSanitizerOptions, 1);
      setenv("TSAN_OPTIONS", kSanitizerOptions, 1);
      if (chdir(folder.c_str()) == 0) execl(QZ_CRASHER, "qz_crasher", how, nullptr);
      _exit(127);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
  }

  const fs::path folder = UniquePath("folder");
};

TEST_F(CrashRecordTest, EachCrashReplacesTheRecordAndEndsTheProcessAsBefore) {
  const int status = Crash("none");
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(0, WEXITSTATUS(status)) << "first no handler is returned, then the library's own";
  EXPECT_TRUE(fs::is_empty(folder));
  const struct {
    const char* how;
    int signal;
    const char* begin;
  } cases[] = {{"null", SIGSEGV, "Signal: 11 (SIGSEGV)\nFault address: 0x0\n"},
               {"abort", SIGABRT, "Signal: 6 (SIGABRT)\n"},
               {"raise", SIGFPE, "Signal: 8 (SIGFPE)\n"},
               {"overflow", SIGSEGV, "Signal: 11 (SIGSEGV)\nFault address: 0x7"}};
  for (const auto& crash : cases) {
    SCOPED_TRACE(crash.how);
    const int end = Crash(crash.how);
    ASSERT_TRUE(WIFSIGNALED(end)) << end;
    EXPECT_EQ(crash.signal, WTERMSIG(end));
    std::ifstream file(folder / "ConsoleApplication1.dmp");
    const std::string record{std::istreambuf_iterator<char>(file), {}};
    EXPECT_THAT(record, ::testing::StartsWith(crash.begin));
    EXPECT_EQ(0u, record.rfind("Signal:")) << "only one";
    const std::size_t modules = record.find("\nModules:\n");
    ASSERT_NE(std::string::npos, modules);
    EXPECT_THAT(record.substr(0, modules), ::testing::HasSubstr("\nBacktrace:\n"));
    EXPECT_THAT(record.substr(0, modules), ::testing::HasSubstr("qz_crasher("));
    EXPECT_THAT(record.substr(modules), ::testing::HasSubstr("libQzHidAPI.so"));
    EXPECT_EQ(1, std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
  }
}

}  // namespace
}  // namespace qzhid::test
