/*
 * What the programs share that use the library and then die (api/crasher.c, windows/crasher.c):
 * they take the steps that their command line names, one after the other. The exit code is the
 * position of the step that found something else than it expected, 0 when there was none.
 */
#pragma once

#include <string.h>

static char** g_next;
static int g_position;
static volatile char g_sink;

/* Takes the step of that name; 0 when it found something else, or when there is none. */
static int take(const char* name);

/* The position of the step that failed. Ends at the last step, or at "}". */
static int run(void) {
  while (*g_next != NULL) {
    const char* const name = *g_next++;
    const int position = ++g_position;
    if (strcmp(name, "}") == 0) return 0;
    if (!take(name)) return position;
  }
  return 0;
}

struct step {
  const char* name;
  int (*take)(void);
};

static int takeOneOf(const struct step* steps, const char* name) {
  for (; steps->name != NULL; ++steps) {
    if (strcmp(steps->name, name) == 0) return steps->take();
  }
  return 0;
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
