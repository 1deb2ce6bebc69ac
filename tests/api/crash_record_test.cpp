// The crash record, left by processes that die.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <sstream>

#include "support/temp_file.h"

namespace qzhid::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

// Sanitizers must not take the signals.
constexpr const char* kSanitizerOptions =
    "handle_segv=0:handle_sigbus=0:handle_sigill=0:handle_abort=0:handle_sigfpe=0:use_sigaltstack="
    "0";

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGSYS, SIGABRT};

/// Runs the crasher on each of the libraries, in a folder that is removed again.
class CrashRecordTest : public ::testing::TestWithParam<const char*> {
 protected:
  /// Takes the steps; the signal that ended the process, or -1 - its exit code. A process that
  /// stops is sent SIGBUS.
  int Crash(const std::string& steps) const {
    const pid_t child = fork();
    if (child == 0) Become(steps);
    int status = -1;
    waitpid(child, &status, WUNTRACED);
    if (WIFSTOPPED(status)) {
      kill(child, SIGBUS);
      kill(child, SIGCONT);
      waitpid(child, &status, 0);
    }
    return WIFSIGNALED(status) ? WTERMSIG(status) : -1 - WEXITSTATUS(status);
  }

  /// What a file in the folder holds: "", if there is none.
  std::string Read(const char* name) const { return ReadText(folder.At(name)); }
  std::string Record() const { return ReadText(record); }

  const ScratchFolder folder;
  const std::string record = folder.At("ConsoleApplication1.dmp");

 private:
  [[noreturn]] void Become(const std::string& steps) const {
    const rlimit noCore{0, 0}, processorSeconds{30, 30};  // a handler must not go round in circles
    setrlimit(RLIMIT_CORE, &noCore);
    setrlimit(RLIMIT_CPU, &processorSeconds);
    setenv("ASAN_OPTIONS", kSanitizerOptions, 1);
    setenv("TSAN_OPTIONS", kSanitizerOptions, 1);
    std::istringstream stream("qz_crasher " + std::string(GetParam()) + " " + steps);
    std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    if (chdir(folder.path.c_str()) == 0) execv(QZ_CRASHER, arguments.data());
    _exit(127);
  }
};

TEST_P(CrashRecordTest, EachCrashReplacesTheRecordAndEndsTheProcessAsBefore) {
  EXPECT_EQ(-1, Crash("as-new record record"));
  EXPECT_TRUE(fs::is_empty(folder.path));
  const std::tuple<const char*, int, std::string> cases[] = {
      {"null", SIGSEGV, "Signal: 11 \\(SIGSEGV\\)\nFault address: 0x0\n"},
      {"abort", SIGABRT, "Signal: 6 \\(SIGABRT\\)\nSent by process: [0-9]+\n"},
      {"8", SIGFPE, "Signal: 8 \\(SIGFPE\\)\nSent by process: [0-9]+\n"},
      {"overflow", SIGSEGV, "Signal: 11 \\(SIGSEGV\\)\nFault address: 0x7"},
      {"{ call overflow", SIGSEGV, "Signal: 11 \\(SIGSEGV\\)\nFault address: 0x7"}};
  for (const auto& [how, signal, begin] : cases) {
    SCOPED_TRACE(how);
    EXPECT_EQ(signal, Crash(std::string("record ") + how));
    const std::string text = Record();
    EXPECT_THAT(text, MatchesRegex(begin + ".*\nBacktrace:\n.*qz_crasher\\(.*"
                                           "\nModules:\n.*libQzHidAPI\\.so.*"));
    EXPECT_EQ(0u, text.rfind("Signal:")) << "only one";
  }
}

TEST_P(CrashRecordTest, NothingOfALongerEarlierRecordIsLeft) {
  WriteText(record, std::string(1 << 20, '~'));
  EXPECT_EQ(SIGSEGV, Crash("record null"));
  EXPECT_EQ(std::string::npos, Record().find("~~"));
  EXPECT_THAT(Record(), HasSubstr("Signal: 11"));
}

TEST_P(CrashRecordTest, ASignalFromAnotherProcessIsRecordedWithItsSender) {
  EXPECT_EQ(SIGBUS, Crash("record stop"));
  EXPECT_THAT(Record(), HasSubstr("Signal: 7 (SIGBUS)\nSent by process: " +
                                  std::to_string(getpid()) + "\nProcess: "));
}

TEST_P(CrashRecordTest, HandlersOfTheHostAreCalledAsBeforeAndAfterTheLibraryIsGone) {
  const struct {
    std::string steps;
    const char* marks;
    bool hasRecord;
  } rows[] = {{"before record", "e", true},
              {"before record unload gone", "e", false},
              {"record unload gone as-new", "", false},
              {"record after", "l", true},
              {"record after unload gone", "l", false},
              {"before record after", "le", true},
              {"before record after unload gone", "le", false},
              {"record after record", "l", true},
              {"record after record unload gone", "l", false},
              {"record unload gone load record", "", true},
              {"record after unload gone load record", "l", true}};
  for (const auto& row : rows) {
    for (const int signal : kSignals) {
      const std::string steps = row.steps + ' ' + std::to_string(signal);
      SCOPED_TRACE(steps);
      folder.Renew();
      EXPECT_EQ(signal, Crash(steps));
      EXPECT_EQ(row.marks, Read("marks"));
      EXPECT_EQ(row.hasRecord, fs::exists(record));
    }
    SCOPED_TRACE(row.steps);
    folder.Renew();
    EXPECT_EQ(SIGSEGV, Crash(row.steps + " null")) << "a fault, not a signal that was sent";
    EXPECT_EQ(row.marks, Read("marks"));
  }
}

TEST_P(CrashRecordTest, TheLibraryStaysLoadedWhereNothingCanOutliveIt) {
  EXPECT_EQ(SIGSEGV, Crash("forbid-new-code record record after unload loaded null"));
  EXPECT_EQ("l", Read("marks"));
  EXPECT_THAT(Record(), HasSubstr("Fault address: 0x0"));
}

TEST_P(CrashRecordTest, ThreadsHaveASignalStackFromTheirFirstCallToTheirEndOrTheUnloading) {
  EXPECT_EQ(-1, Crash("call no-stack record stack { no-stack call stack } stack-gone "
                      "stack unload gone no-stack stack-gone"));
  EXPECT_EQ(-1, Crash("record { call stack unload gone no-stack } stack"));
}

TEST_P(CrashRecordTest, WhateverHasTheNameOfTheRecordIsReplacedAndNeverFollowed) {
  const std::string other = folder.At("other");
  const std::pair<const char*, std::function<void()>> rows[] = {
      {"a FIFO", [&] { mkfifo(record.c_str(), 0600); }},
      {"a link", [&] { fs::create_symlink(other, record); }},
      {"a link to nothing", [&] { fs::create_symlink(folder.At("nothing"), record); }},
      {"a second name", [&] { fs::create_hard_link(other, record); }}};
  for (const auto& [what, make] : rows) {
    SCOPED_TRACE(what);
    folder.Renew();
    WriteText(other, "kept");
    make();
    EXPECT_EQ(SIGSEGV, Crash("record null"));
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(record)));
    EXPECT_THAT(Record(), HasSubstr("Signal: 11"));
    EXPECT_EQ("kept", Read("other"));
    EXPECT_FALSE(fs::exists(folder.At("nothing")));
  }
  folder.Renew();
  fs::create_directories(record);
  EXPECT_EQ(SIGSEGV, Crash("record null"));
  EXPECT_TRUE(fs::is_directory(record));
}

TEST_P(CrashRecordTest, StandardStreamsAreNotWrittenToAndLimitsDoNotChangeHowTheProcessEnds) {
  EXPECT_EQ(SIGSEGV, Crash("record close-streams null"));
  EXPECT_THAT(Record(), HasSubstr("\nModules:\n"));
  for (const char* limits : {"limit-files", "close-streams limit-descriptors"}) {
    SCOPED_TRACE(limits);
    EXPECT_EQ(SIGSEGV, Crash("record " + std::string(limits) + " null"));
    EXPECT_EQ("", Record());
  }
}

INSTANTIATE_TEST_SUITE_P(Libraries, CrashRecordTest, ::testing::Values(QZ_LIBRARIES),
                         [](const auto& library) {
                           return library.index == 0 ? "Virtual" : "Native";
                         });

}  // namespace
}  // namespace qzhid::test
