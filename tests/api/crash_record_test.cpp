// The crash record, left by processes that die.
#include <fcntl.h>
#include <gmock/gmock.h>
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
#include <optional>
#include <thread>

#include "support/library_file.h"
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

// ---- What the processes do; one that finds something else than it expects exits with a code -----

using Steps = std::vector<std::function<void()>>;

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGSYS, SIGABRT};
constexpr const char* kFiles[] = {QZ_LIBRARIES};
const char* g_file = nullptr;
std::optional<LibraryFile> g_library;
void* g_stack = nullptr;
std::map<int, struct sigaction> g_found;

void Expect(bool isMet, int code) {
  if (!isMet) _exit(code);
}

/// The handlers of the host write one character each to a file.
void Mark(const char* text) {
  const int file = open("marks", O_WRONLY | O_CREAT | O_APPEND, 0644);
  Expect(write(file, text, 1) == 1, 1);
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
void Install(void (*handler)(int, siginfo_t*, void*)) {
  struct sigaction action {};
  action.sa_sigaction = handler;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  for (const int signal : kSignals) sigaction(signal, &action, &g_found[signal]);
}
void Before() { Install(Earlier); }
void After() { Install(Later); }
void* Handler(int signal) {
  struct sigaction action {};
  sigaction(signal, nullptr, &action);
  return reinterpret_cast<void*>(action.sa_handler);
}

void Load() { g_library.emplace(g_file); }
void Unload() {
  g_library.reset();
  Expect(dlopen(g_file, RTLD_LAZY | RTLD_NOLOAD) == nullptr, 2);
}
/// Returns the handler that is installed so far.
void Record() {
  void* const handler = Handler(SIGSEGV);
  const auto generate = g_library->Find<decltype(QZ_GenerateDumplog)>("QZ_GenerateDumplog");
  Expect(reinterpret_cast<void*>(generate()) == handler, 3);
}
void Call() { Expect(g_library->Find<decltype(QZ_SetLogPath)>("QZ_SetLogPath")(nullptr) == 0, 4); }

bool HasStack() {
  stack_t current{};
  sigaltstack(nullptr, &current);
  g_stack = current.ss_sp;
  return (current.ss_flags & SS_DISABLE) == 0;
}
void Stack() { Expect(HasStack(), 5); }
void NoStack() { Expect(!HasStack(), 6); }
void StackIsGone() {
  unsigned char isResident = 0;
  Expect(mincore(g_stack, 1, &isResident) != 0, 7);
}

void Limit(decltype(RLIMIT_FSIZE) resource, rlim_t most) {
  const rlimit limit{most, most};
  setrlimit(resource, &limit);
}
void CloseStreams() {
  for (int number = 0; number < 3; ++number) close(number);
}
/// As on a hardened system: memory that was written cannot become code.
void ForbidNewCode() {
  sock_filter filter[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                          BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_mprotect, 0, 3),
                          BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
                          BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, PROT_EXEC, 0, 1),
                          BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EACCES),
                          BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  const sock_fprog program = {std::size(filter), filter};
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  Expect(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0, 8);
}

__attribute__((no_sanitize("address", "undefined"))) void Null() {
  volatile int* volatile nowhere = nullptr;
  // cppcheck-suppress nullPointer
  *nowhere = 1;  // NOLINT: it is meant to crash
}
__attribute__((no_sanitize("address", "undefined"))) int Recurse(int depth) {
  volatile char room[4096];
  room[0] = static_cast<char>(depth);
  return depth < 0 ? 0 : Recurse(depth + 1) + room[0];
}
void Overflow() { Recurse(0); }

void Take(const Steps& steps) {
  for (const auto& step : steps) step();
}
/// The steps on a thread of their own.
std::function<void()> OnAThread(const Steps& steps) {
  return [steps] { std::thread(Take, steps).join(); };
}

// -------------------------------------------------------------------------------------------------

/// Runs processes with each of the libraries, in a folder that is removed again.
class CrashRecordTest : public ::testing::TestWithParam<const char*> {
 protected:
  /// A process takes the steps; the signal that ended it, or -1 - its exit code. One that stops is
  /// sent SIGBUS.
  int Crash(const Steps& steps, const Steps& last = {}) const {
    const pid_t child = fork();
    if (child == 0) {
      Limit(RLIMIT_CORE, 0);
      Limit(RLIMIT_CPU, 30);  // a handler must not go round in circles
      for (const int signal : kSignals) std::signal(signal, SIG_DFL);  // not the sanitizer's
      fs::current_path(folder.path);
      g_file = GetParam();
      Load();
      Take(steps);
      Take(last);
      _exit(0);
    }
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
  const std::string record = folder.At("ConsoleApplication1.dmp"), marks = folder.At("marks");
};

INSTANTIATE_TEST_SUITE_P(Libraries, CrashRecordTest, ::testing::ValuesIn(kFiles),
                         [](const auto& given) { return LibraryName(given.param); });

TEST_P(CrashRecordTest, EachCrashReplacesTheWholeRecordAndEndsTheProcessAsBefore) {
  const auto isAsNew = [] {
    for (const int signal : kSignals) Expect(Handler(signal) == nullptr, 9);
  };
  EXPECT_EQ(-1, Crash({isAsNew, Record, Record}));
  EXPECT_TRUE(fs::is_empty(folder.path));
  const std::string overflow = "Signal: 11 \\(SIGSEGV\\)\nFault address: 0x[0-9a-f]{9}",
                    us = std::to_string(getpid());
  const std::tuple<std::function<void()>, int, std::string> rows[] = {
      {Null, SIGSEGV, "Signal: 11 \\(SIGSEGV\\)\nFault address: 0x0\n"},
      {abort, SIGABRT, "Signal: 6 \\(SIGABRT\\)\nSent by process: [0-9]+\n"},
      {[] { raise(SIGFPE); }, SIGFPE, "Signal: 8 \\(SIGFPE\\)\nSent by process: [0-9]+\n"},
      {[] { raise(SIGSTOP); }, SIGBUS,
       "Signal: 7 \\(SIGBUS\\)\nSent by process: " + us + "\nProcess: "},
      {Overflow, SIGSEGV, overflow},
      {OnAThread({Call, Overflow}), SIGSEGV, overflow}};
  WriteText(record, std::string(1 << 20, '~'));
  for (const auto& [crash, signal, begin] : rows) {
    SCOPED_TRACE(begin);
    EXPECT_EQ(signal, Crash({Record, crash}));
    const std::string text = ReadText(record);
    EXPECT_THAT(text, MatchesRegex(begin + "[^~]*\nBacktrace:\n[^~]*api_tests\\([^~]*"
                                           "\nModules:\n[^~]*libQzHidAPI\\.so[^~]*"));
    EXPECT_EQ(0u, text.rfind("Signal:")) << "only one";
  }
}

TEST_P(CrashRecordTest, HandlersOfTheHostAreCalledAsBeforeAndAfterTheLibraryIsGone) {
  const struct {
    Steps steps;
    const char* marks;
    bool hasRecord;
  } rows[] = {{{Before, Record}, "e", true},
              {{Before, Record, Unload}, "e", false},
              {{Record, Unload}, "", false},
              {{Record, After}, "l", true},
              {{Record, After, Unload}, "l", false},
              {{Before, Record, After}, "le", true},
              {{Before, Record, After, Unload}, "le", false},
              {{Record, After, Record}, "l", true},
              {{Record, After, Record, Unload}, "l", false},
              {{Record, Unload, Load, Record}, "", true},
              {{Record, After, Unload, Load, Record}, "l", true}};
  std::vector<std::pair<std::function<void()>, int>> deaths = {{Null, SIGSEGV}};
  for (const int signal : kSignals) deaths.emplace_back([signal] { raise(signal); }, signal);
  for (const auto& row : rows) {
    for (const auto& [die, signal] : deaths) {
      SCOPED_TRACE("row " + std::to_string(&row - rows) + " signal " + std::to_string(signal));
      folder.Renew();
      EXPECT_EQ(signal, Crash(row.steps, {die}));
      EXPECT_EQ(row.marks, ReadText(marks));
      EXPECT_EQ(row.hasRecord, fs::exists(record));
    }
  }
}

TEST_P(CrashRecordTest, TheLibraryStaysLoadedWhereNothingCanOutliveIt) {
  const auto close = [] {
    g_library.reset();
    Expect(dlopen(g_file, RTLD_LAZY | RTLD_NOLOAD) != nullptr, 10);
  };
  EXPECT_EQ(SIGSEGV, Crash({ForbidNewCode, Record, Record, After, close, Null}));
  EXPECT_EQ("l", ReadText(marks));
  EXPECT_THAT(ReadText(record), HasSubstr("Fault address: 0x0"));
}

TEST_P(CrashRecordTest, ThreadsHaveASignalStackFromTheirFirstCallToTheirEndOrTheUnloading) {
  const auto other = OnAThread({NoStack, Call, Stack});
  EXPECT_EQ(-1, Crash({Call, NoStack, Record, Stack, other, StackIsGone, Stack, Unload, NoStack,
                       StackIsGone}));
  EXPECT_EQ(-1, Crash({Record, OnAThread({Call, Stack, Unload, NoStack}), Stack}));
}

TEST_P(CrashRecordTest, WhateverHasTheNameOfTheRecordIsReplacedAndNeverFollowed) {
  const std::string other = folder.At("other"), nothing = folder.At("nothing");
  const std::pair<const char*, std::function<void()>> rows[] = {
      {"a FIFO", [&] { mkfifo(record.c_str(), 0600); }},
      {"a link", [&] { fs::create_symlink(other, record); }},
      {"a link to nothing", [&] { fs::create_symlink(nothing, record); }},
      {"a second name", [&] { fs::create_hard_link(other, record); }}};
  for (const auto& [what, make] : rows) {
    SCOPED_TRACE(what);
    folder.Renew();
    WriteText(other, "kept");
    make();
    EXPECT_EQ(SIGSEGV, Crash({Record, Null}));
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(record)));
    EXPECT_THAT(ReadText(record), HasSubstr("Signal: 11"));
    EXPECT_EQ("kept", ReadText(other));
    EXPECT_FALSE(fs::exists(nothing));
  }
  folder.Renew();
  fs::create_directories(record);
  EXPECT_EQ(SIGSEGV, Crash({Record, Null}));
  EXPECT_TRUE(fs::is_directory(record));
}

TEST_P(CrashRecordTest, StandardStreamsAreNotWrittenToAndLimitsDoNotChangeHowTheProcessEnds) {
  EXPECT_EQ(SIGSEGV, Crash({Record, CloseStreams, Null}));
  EXPECT_THAT(ReadText(record), HasSubstr("\nModules:\n"));
  const auto limitFiles = [] { Limit(RLIMIT_FSIZE, 0); };
  EXPECT_EQ(SIGSEGV, Crash({Record, limitFiles, Null}));
  EXPECT_EQ("", ReadText(record));
  const auto limitDescriptors = [] { Limit(RLIMIT_NOFILE, 3); };
  EXPECT_EQ(SIGSEGV, Crash({Record, CloseStreams, limitDescriptors, Null}));
  EXPECT_EQ("", ReadText(record));
}

}  // namespace
}  // namespace qzhid::test
