/*
 * crasher STEP...: uses the library QzHidAPI.dll beside it and then dies. The exit code is the
 * position of the step that found something else than it expected, 0 when there was none. The
 * filters of the host write one character each to the file "marks".
 */
#include <string.h>
#include <windows.h>

#include "QzHidAPI.h"

static char** g_next;
static int g_position;
static volatile char g_sink;

static HMODULE g_library;
static LPTOP_LEVEL_EXCEPTION_FILTER g_chained;

static void mark(const char* text) {
  DWORD written;
  const HANDLE file =
      CreateFileA("marks", FILE_APPEND_DATA, 0, NULL, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, NULL);
  if (!WriteFile(file, text, 1, &written, NULL)) ExitProcess(99);
  CloseHandle(file);
}

static LONG WINAPI earlier(EXCEPTION_POINTERS* exception) {
  (void)exception;
  mark("e");
  return EXCEPTION_CONTINUE_SEARCH;
}
static LONG WINAPI later(EXCEPTION_POINTERS* exception) {
  mark("l");
  return g_chained(exception);
}

static int before(void) {
  SetUnhandledExceptionFilter(earlier);
  return 1;
}
static int after(void) {
  g_chained = SetUnhandledExceptionFilter(later);
  return g_chained != NULL;
}
static int none(void) {
  SetUnhandledExceptionFilter(NULL);
  return 1;
}
static int isEarlier(void) { return SetUnhandledExceptionFilter(earlier) == earlier; }

static int load(void) {
  g_library = LoadLibraryA("QzHidAPI.dll");
  return g_library != NULL;
}
static int unload(void) {
  return FreeLibrary(g_library) && GetModuleHandleA("QzHidAPI.dll") == NULL;
}

typedef void (*Function)(void);
static Function export(const char* name) { return (Function)GetProcAddress(g_library, name); }

/* Returns the filter that is installed so far. */
static int record(void) {
  QZ_ExceptionFilter (*const generate)(void) =
      (QZ_ExceptionFilter(*)(void)) export("QZ_GenerateDumplog");
  const LPTOP_LEVEL_EXCEPTION_FILTER filter = SetUnhandledExceptionFilter(NULL);
  SetUnhandledExceptionFilter(filter);
  return generate() == filter;
}
static int call(void) {
  int32_t (*const setLogPath)(const char*) = (int32_t(*)(const char*)) export("QZ_SetLogPath");
  return setLogPath(NULL) == 0;
}

/* There is room for a filter when the thread's stack has overflowed. */
static int hasRoom(void) {
  ULONG size = 0;
  return SetThreadStackGuarantee(&size) && size >= 0x10000;
}
static int hasNoRoom(void) { return !hasRoom(); }

static int run(void);
static DWORD WINAPI runThread(void* unused) {
  (void)unused;
  return (DWORD)run();
}
/* The remaining steps on a thread of its own. */
static int thread(void) {
  DWORD result = 1;
  const HANDLE other = CreateThread(NULL, 0, runThread, NULL, 0, NULL);
  WaitForSingleObject(other, INFINITE);
  GetExitCodeThread(other, &result);
  return result == 0;
}

static int null(void) {
  volatile int* volatile nowhere = NULL;
  // cppcheck-suppress nullPointer
  *nowhere = 1; /* NOLINT: it is meant to crash */
  return 0;
}
static int recurse(int depth) {
  volatile char room[4096];
  room[0] = (char)depth;
  if (depth < 0) return 0;
  g_sink = room[0];
  return recurse(depth + 1) + room[0];
}
static int overflow(void) { return recurse(0); }

static const struct {
  const char* name;
  int (*take)(void);
} steps[] = {
    {"before", before},     {"after", after},       {"none", none},     {"earlier", isEarlier},
    {"load", load},         {"unload", unload},     {"record", record}, {"call", call},
    {"room", hasRoom},      {"no-room", hasNoRoom}, {"{", thread},      {"null", null},
    {"overflow", overflow}, {NULL, NULL},
};

/* The position of the step that failed, or 0. */
static int run(void) {
  while (*g_next != NULL) {
    const char* const name = *g_next++;
    const int position = ++g_position;
    int i = 0;
    while (steps[i].name != NULL && strcmp(steps[i].name, name) != 0) ++i;
    if (steps[i].name == NULL || !steps[i].take()) return position;
  }
  return 0;
}

int main(int argc, char** argv) {
  (void)argc;
  g_next = argv + 1;
  return run();
}
