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
    "handle_segv=0:handle_abort=0:handle_sigfpe=0:use_sigaltstack=0";

/// Runs the crasher in the folder; the signal that ended it, or -1 - its exit code.
int Crash(const std::string& folder, const char* how) {
  const pid_t child = fork();
  if (child == 0) {
    const rlimit noCore{0, 0}, processorSeconds{30, 30};  // a handler must not go round in circles
    setrlimit(RLIMIT_CORE, &noCore);
    setrlimit(RLIMIT_CPU, &processorSeconds);
    setenv("ASAN_OPTIONS", kSanitizerOptions, 1);
    setenv("TSAN_OPTIONS", kSanitizerOptions, 1);
    if (chdir(folder.c_str()) == 0) execl(QZ_CRASHER, "qz_crasher", how, nullptr);
    _exit(127);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? WTERMSIG(status) : -1 - WEXITSTATUS(status);
}

TEST(CrashRecordTest, EachCrashReplacesTheRecordAndEndsTheProcessAsBefore) {
  const std::string folder = UniquePath("folder");
  fs::create_directory(folder);
  EXPECT_EQ(-1, Crash(folder, "none")) << "first no handler is returned, then the library's own";
  EXPECT_TRUE(fs::is_empty(folder));
  const std::tuple<const char*, int, std::string> cases[] = {
      {"null", SIGSEGV, "Signal: 11 \\(SIGSEGV\\)\nFault address: 0x0\n"},
      {"abort", SIGABRT, "Signal: 6 \\(SIGABRT\\)\n"},
      {"raise", SIGFPE, "Signal: 8 \\(SIGFPE\\)\n"},
      {"overflow", SIGSEGV, "Signal: 11 \\(SIGSEGV\\)\nFault address: 0x7"}};
  for (const auto& [how, signal, begin] : cases) {
    SCOPED_TRACE(how);
    EXPECT_EQ(signal, Crash(folder, how));
    std::ifstream file(folder + "/ConsoleApplication1.dmp");
    const std::string record{std::istreambuf_iterator<char>(file), {}};
    EXPECT_THAT(record, ::testing::MatchesRegex(begin + ".*\nBacktrace:\n.*qz_crasher\\(.*"
                                                        "\nModules:\n.*libQzHidAPI\\.so.*"));
    EXPECT_EQ(0u, record.rfind("Signal:")) << "only one";
  }
  fs::remove_all(folder);
}

}  // namespace
}  // namespace qzhid::test
