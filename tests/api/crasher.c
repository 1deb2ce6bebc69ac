/*
 * crasher LIBRARY STEP...: see crasher_steps.h. A number sends that signal; the steps up to "}" run
 * on a thread of their own. The handlers of the host write one character each to the file "marks".
 */
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <pthread.h>
#include <signal.h>
#include <stddef.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "QzHidAPI.h"
#include "support/crasher_steps.h"

enum { SIGNALS = 6 };
static const int g_signals[SIGNALS] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGSYS, SIGABRT};

static const char* g_path;
static void* g_library;
static QZ_ExceptionFilter (*g_generateDumplog)(void);
static int32_t (*g_setLogPath)(const char*);
static struct sigaction g_chained[SIGNALS];
static void* g_stack;

static void mark(const char* text) {
  const int file = open("marks", O_WRONLY | O_CREAT | O_APPEND, 0644);
  if (file < 0 || write(file, text, 1) != 1) _exit(99);
  close(file);
}

/* A handler that was there before: it is called once, then the default follows. */
static void earlier(int number, siginfo_t* info, void* context) {
  (void)context;
  mark("e");
  signal(number, SIG_DFL);
  if (info->si_code <= 0) raise(number);
}

/* A handler that calls the one that it found. */
static void later(int number, siginfo_t* info, void* context) {
  mark("l");
  for (int i = 0; i < SIGNALS; ++i) {
    if (g_signals[i] == number) g_chained[i].sa_sigaction(number, info, context);
  }
}

static int install(void (*handler)(int, siginfo_t*, void*), struct sigaction* found) {
  struct sigaction action = {0};
  action.sa_sigaction = handler;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  for (int i = 0; i < SIGNALS; ++i) sigaction(g_signals[i], &action, found ? found + i : NULL);
  return 1;
}
static int before(void) { return install(earlier, NULL); }
static int after(void) { return install(later, g_chained); }

/* All six are as in a new process. */
static int asNew(void) {
  for (int i = 0; i < SIGNALS; ++i) {
    struct sigaction action;
    sigaction(g_signals[i], NULL, &action);
    if (action.sa_handler != SIG_DFL) return 0;
  }
  return 1;
}

static int load(void) {
  g_library = dlopen(g_path, RTLD_NOW);
  if (g_library == NULL) return 0;
  *(void**)&g_generateDumplog = dlsym(g_library, "QZ_GenerateDumplog");
  *(void**)&g_setLogPath = dlsym(g_library, "QZ_SetLogPath");
  return 1;
}
static int isLoaded(void) {
  void* const found = dlopen(g_path, RTLD_LAZY | RTLD_NOLOAD);
  if (found != NULL) dlclose(found);
  return found != NULL;
}
static int unload(void) { return dlclose(g_library) == 0; }
static int isGone(void) { return !isLoaded(); }

/* Returns the handler that is installed so far. */
static int record(void) {
  struct sigaction action;
  sigaction(SIGSEGV, NULL, &action);
  return g_generateDumplog() == action.sa_handler;
}
static int call(void) { return g_setLogPath(NULL) == 0; }

static int hasStack(void) {
  stack_t current;
  sigaltstack(NULL, &current);
  g_stack = current.ss_sp;
  return (current.ss_flags & SS_DISABLE) == 0;
}
static int hasNoStack(void) { return !hasStack(); }
static int stackIsGone(void) {
  unsigned char isResident;
  return mincore(g_stack, 1, &isResident) != 0 && errno == ENOMEM;
}

static void* runThread(void* good) { return run() == 0 ? good : NULL; }
/* The steps up to "}" on a thread of its own. */
static int thread(void) {
  pthread_t other;
  void* result = NULL;
  pthread_create(&other, NULL, runThread, g_library);
  pthread_join(other, &result);
  return result != NULL;
}

static int closeStreams(void) { return close(0) + close(1) + close(2) == 0; }
static int limitFiles(void) {
  const struct rlimit none = {0, 0};
  return setrlimit(RLIMIT_FSIZE, &none) == 0;
}
static int limitDescriptors(void) {
  const struct rlimit streams = {3, 3};
  return setrlimit(RLIMIT_NOFILE, &streams) == 0;
}
/* As on a hardened system: memory that was written cannot become code. */
static int forbidNewCode(void) {
  struct sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_mprotect, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, args[2])),
      BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, PROT_EXEC, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EACCES),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  const struct sock_fprog program = {sizeof(filter) / sizeof(*filter), filter};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

static int doAbort(void) { abort(); }
static int stop(void) { return raise(SIGSTOP) == 0; }

static const struct step steps[] = {
    {"before", before},
    {"after", after},
    {"as-new", asNew},
    {"load", load},
    {"unload", unload},
    {"loaded", isLoaded},
    {"gone", isGone},
    {"record", record},
    {"call", call},
    {"stack", hasStack},
    {"no-stack", hasNoStack},
    {"stack-gone", stackIsGone},
    {"{", thread},
    {"close-streams", closeStreams},
    {"limit-files", limitFiles},
    {"limit-descriptors", limitDescriptors},
    {"forbid-new-code", forbidNewCode},
    {"null", null},
    {"overflow", overflow},
    {"abort", doAbort},
    {"stop", stop},
    {NULL, NULL},
};

static int take(const char* name) {
  const int number = atoi(name);
  return number != 0 ? raise(number) == 0 : takeOneOf(steps, name);
}

int main(int argc, char** argv) {
  if (argc < 2) return 98;
  g_path = argv[1];
  g_next = argv + 2;
  if (!load()) return 97;
  return run();
}
