// The crash record, left by processes that die.
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <functional>
#include <map>
#include <sstream>
#include <thread>

#include "QzHidAPI.h"
#include "support/temp_file.h"

// NOLINTBEGIN(bugprone-reserved-identifier)
// AddressSanitizer gives threads a signal stack unless this says otherwise.
extern "C" [[gnu::visibility("default")]] const char* __asan_default_options();
extern "C" const char* __asan_default_options() { return "use_sigaltstack=0"; }
// NOLINTEND(bugprone-reserved-identifier)

namespace qzhid::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

/// Signals that are sent, and a fault.
const std::pair<std::string, int> kDeaths[] = {{" 11", SIGSEGV},  {" 7", SIGBUS},  {" 4", SIGILL},
                                               {" 8", SIGFPE},    {" 31", SIGSYS}, {" 6", SIGABRT},
                                               {" null", SIGSEGV}};

// ---- What the processes do ----------------------------------------------------------------------

const char* g_file = nullptr;
void* g_library = nullptr;
void* g_stack = nullptr;
std::map<int, struct sigaction> g_found;

template <class Function>
Function* Export(const char* name) {
  return reinterpret_cast<Function*>(dlsym(g_library, name));
}

/// The handlers of the host write one character each to a file.
void Mark(const char* text) {
  const int file = open("marks", O_WRONLY | O_CREAT | O_APPEND, 0644);
  if (write(file, text, 1) != 1) _exit(99);
  close(file);
}
/// A handler that was there before: it is called once, then the default follows.
void Earlier(int number, siginfo_t* info, void*) {
  Mark("e");
  std::signal(number, SIG_DFL);
  if (info->si_code <= 0) raise(number);
}
/// A handler that calls the one that it found.
void Later(int number, siginfo_t* info, void* context) {
  Mark("l");
  g_found[number].sa_sigaction(number, info, context);
}
bool Install(void (*handler)(int, siginfo_t*, void*)) {
  struct sigaction action {};
  action.sa_sigaction = handler;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  for (const auto& [how, signal] : kDeaths) {
    if (how != " null") sigaction(signal, &action, &g_found[signal]);
  }
  return true;
}
void* Handler(int signal) {
  struct sigaction action {};
  sigaction(signal, nullptr, &action);
  return reinterpret_cast<void*>(action.sa_handler);
}

bool IsGone() { return dlopen(g_file, RTLD_LAZY | RTLD_NOLOAD) == nullptr; }

bool HasStack() {
  stack_t current{};
  sigaltstack(nullptr, &current);
  g_stack = current.ss_sp;
  return (current.ss_flags & SS_DISABLE) == 0;
}

bool Limit(decltype(RLIMIT_FSIZE) resource, rlim_t most) {
  const rlimit limit{most, most};
  return setrlimit(resource, &limit) == 0;
}

/// As on a hardened system: memory that was written cannot become code.
bool ForbidNewCode() {
  sock_filter filter[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                          BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_mprotect, 0, 3),
                          BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
                          BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, PROT_EXEC, 0, 1),
                          BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EACCES),
                          BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  const sock_fprog program = {std::size(filter), filter};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

[[gnu::no_sanitize("address", "undefined")]] bool WriteNowhere() {
  volatile int* volatile nowhere = nullptr;
  // cppcheck-suppress nullPointer
  *nowhere = 1;  // NOLINT: it is meant to crash
  return false;
}
[[gnu::no_sanitize("address", "undefined")]] int Recurse(int depth) {
  volatile char room[4096];
  room[0] = static_cast<char>(depth);
  return depth < 0 ? 0 : Recurse(depth + 1) + room[0];
}

/// Each returns whether it found what it expected. A number sends that signal; the steps up to "}"
/// run on a thread of their own.
const std::map<std::string, bool (*)()> kSteps = {
    {"load", [] { return (g_library = dlopen(g_file, RTLD_NOW)) != nullptr; }},
    {"unload", [] { return dlclose(g_library) == 0; }},
    {"gone", IsGone},
    {"loaded", [] { return !IsGone(); }},
    {"before", [] { return Install(Earlier); }},
    {"after", [] { return Install(Later); }},
    {"as-new",
     [] {
       return std::all_of(std::begin(kDeaths), std::end(kDeaths),
                          [](const auto& death) { return Handler(death.second) == nullptr; });
     }},
    // Returns the handler that is installed so far.
    {"record",
     [] {
       void* const handler = Handler(SIGSEGV);
       const auto before = Export<decltype(QZ_GenerateDumplog)>("QZ_GenerateDumplog")();
       return reinterpret_cast<void*>(before) == handler;
     }},
    {"call", [] { return Export<decltype(QZ_SetLogPath)>("QZ_SetLogPath")(nullptr) == 0; }},
    {"stack", HasStack},
    {"no-stack", [] { return !HasStack(); }},
    {"stack-gone",
     [] {
       unsigned char isResident = 0;
       return mincore(g_stack, 1, &isResident) != 0 && errno == ENOMEM;
     }},
    {"close-streams", [] { return close(0) + close(1) + close(2) == 0; }},
    {"limit-files", [] { return Limit(RLIMIT_FSIZE, 0); }},
    {"limit-descriptors", [] { return Limit(RLIMIT_NOFILE, 3); }},
    {"forbid-new-code", ForbidNewCode},
    {"null", WriteNowhere},
    {"overflow", [] { return Recurse(0) < 0; }},
    {"abort", []() -> bool { std::abort(); }},
    {"stop", [] { return raise(SIGSTOP) == 0; }}};

/// Takes the steps; the one that found something else than it expected, counted from 1, or 0.
int Take(std::istream& steps) {
  int position = 1;
  for (std::string step; steps >> step && step != "}"; ++position) {
    bool isGood = true;
    if (step == "{") {
      std::thread([&] { isGood = Take(steps) == 0; }).join();
    } else if (const int number = std::atoi(step.c_str()); number != 0) {
      isGood = raise(number) == 0;
    } else {
      isGood = kSteps.at(step)();
    }
    if (!isGood) return position;
  }
  return 0;
}

// -------------------------------------------------------------------------------------------------

/// Runs processes with each of the libraries, in a folder that is removed again.
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

  const ScratchFolder folder;
  const std::string record = folder.At("ConsoleApplication1.dmp");

 private:
  [[noreturn]] void Become(const std::string& steps) const {
    Limit(RLIMIT_CORE, 0);
    Limit(RLIMIT_CPU, 30);  // a handler must not go round in circles
    for (const auto& [how, signal] : kDeaths) std::signal(signal, SIG_DFL);  // the sanitizer's
    g_file = GetParam();
    std::istringstream all("load " + steps);
    fs::current_path(folder.path);
    _exit(Take(all));
  }
};

TEST_P(CrashRecordTest, EachCrashReplacesTheWholeRecordAndEndsTheProcessAsBefore) {
  EXPECT_EQ(-1, Crash("as-new record record"));
  EXPECT_TRUE(fs::is_empty(folder.path));
  const std::string overflow = "Signal: 11 \\(SIGSEGV\\)\nFault address: 0x7";
  const std::tuple<const char*, int, std::string> rows[] = {
      {"null", SIGSEGV, "Signal: 11 \\(SIGSEGV\\)\nFault address: 0x0\n"},
      {"abort", SIGABRT, "Signal: 6 \\(SIGABRT\\)\nSent by process: [0-9]+\n"},
      {"8", SIGFPE, "Signal: 8 \\(SIGFPE\\)\nSent by process: [0-9]+\n"},
      {"stop", SIGBUS,
       "Signal: 7 \\(SIGBUS\\)\nSent by process: " + std::to_string(getpid()) + "\nProcess: "},
      {"overflow", SIGSEGV, overflow},
      {"{ call overflow", SIGSEGV, overflow}};
  WriteText(record, std::string(1 << 20, '~'));
  for (const auto& [how, signal, begin] : rows) {
    SCOPED_TRACE(how);
    EXPECT_EQ(signal, Crash(std::string("record ") + how));
    const std::string text = ReadText(record);
    EXPECT_THAT(text, MatchesRegex(begin + "[^~]*\nBacktrace:\n[^~]*api_tests\\([^~]*"
                                           "\nModules:\n[^~]*libQzHidAPI\\.so[^~]*"));
    EXPECT_EQ(0u, text.rfind("Signal:")) << "only one";
  }
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
    for (const auto& [how, signal] : kDeaths) {
      SCOPED_TRACE(row.steps + how);
      folder.Renew();
      EXPECT_EQ(signal, Crash(row.steps + how));
      EXPECT_EQ(row.marks, ReadText(folder.At("marks")));
      EXPECT_EQ(row.hasRecord, fs::exists(record));
    }
  }
}

TEST_P(CrashRecordTest, TheLibraryStaysLoadedWhereNothingCanOutliveIt) {
  EXPECT_EQ(SIGSEGV, Crash("forbid-new-code record record after unload loaded null"));
  EXPECT_EQ("l", ReadText(folder.At("marks")));
  EXPECT_THAT(ReadText(record), HasSubstr("Fault address: 0x0"));
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
    EXPECT_THAT(ReadText(record), HasSubstr("Signal: 11"));
    EXPECT_EQ("kept", ReadText(other));
    EXPECT_FALSE(fs::exists(folder.At("nothing")));
  }
  folder.Renew();
  fs::create_directories(record);
  EXPECT_EQ(SIGSEGV, Crash("record null"));
  EXPECT_TRUE(fs::is_directory(record));
}

TEST_P(CrashRecordTest, StandardStreamsAreNotWrittenToAndLimitsDoNotChangeHowTheProcessEnds) {
  EXPECT_EQ(SIGSEGV, Crash("record close-streams null"));
  EXPECT_THAT(ReadText(record), HasSubstr("\nModules:\n"));
  for (const char* limits : {"limit-files", "close-streams limit-descriptors"}) {
    SCOPED_TRACE(limits);
    EXPECT_EQ(SIGSEGV, Crash("record " + std::string(limits) + " null"));
    EXPECT_EQ("", ReadText(record));
  }
}

INSTANTIATE_TEST_SUITE_P(Libraries, CrashRecordTest, ::testing::Values(QZ_LIBRARIES),
                         [](const auto& library) {
                           return library.index == 0 ? "Virtual" : "Native";
                         });

}  // namespace
}  // namespace qzhid::test
