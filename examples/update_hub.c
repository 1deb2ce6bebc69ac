/*
 * Updates a hub: lists the hubs, opens the first one (or the one with the given instance), shows
 * the versions, writes the image and shows what the hub then runs.
 *
 *   update_hub IMAGE [DEVINST]
 *
 * The environment variable UPDATE_HUB_LOG names a file to log every step to.
 *
 * Ends with "updated: OLD -> NEW" and exit status 0, or with one line on standard error and 1.
 */
#if !defined(_WIN32)
#define _XOPEN_SOURCE 700 /* isatty, S_IFMT; NOLINT(bugprone-reserved-identifier) */
#include <unistd.h>
#define IS_TERMINAL(file) isatty(fileno(file))
#else
#include <io.h>
#define IS_TERMINAL(file) _isatty(_fileno(file))
#endif
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "QzHidAPI.h"

enum { BAR_WIDTH = 40 };

/* In bytes. The version of an image is before the first limit; no flash exceeds the second. */
enum { SHORTEST_IMAGE = 0x7FA8, LONGEST_IMAGE = 0x1000000 };

static int g_isTerminal;
static int32_t g_shown = -1;

static void printVersion(const char* label, uint16_t version) {
  printf("%s: %x.%02x\n", label, (unsigned)(version >> 8), (unsigned)(version & 0xFF));
}

static void showProgress(int32_t percent) {
  char bar[BAR_WIDTH + 1];
  int i;
  if (percent == g_shown) return;
  g_shown = percent;
  if (!g_isTerminal) {
    printf("progress: %d %%\n", (int)percent);
    fflush(stdout);
    return;
  }
  for (i = 0; i < BAR_WIDTH; ++i) bar[i] = i * 100 < percent * BAR_WIDTH ? '#' : '.';
  bar[BAR_WIDTH] = '\0';
  printf("\r[%s] %3d %%", bar, (int)percent);
  fflush(stdout);
}

static int fail(const char* what) {
  fprintf(stderr, "update_hub: %s\n", what);
  return 1;
}

/* The library writes whatever it is given, so the host rejects what cannot be an image. Only a
 * regular file has a size to check. */
static const char* whyNoImage(const char* path) {
  struct stat facts;
  if (stat(path, &facts) != 0) return "cannot find the image";
  if ((facts.st_mode & S_IFMT) != S_IFREG) return "the image is not a regular file";
  if (facts.st_size < SHORTEST_IMAGE) return "the image is too short";
  if (facts.st_size > LONGEST_IMAGE) return "the image is too long";
  return NULL;
}

/* UTF-16 to plain text; a character that is not ASCII becomes '?'. */
static const char* plainText(const QZ_Utf16* text) {
  static char plain[QZ_RECORD_TEXT_UNITS];
  size_t i;
  for (i = 0; text[i] != 0; ++i) plain[i] = text[i] < 0x80 ? (char)text[i] : '?';
  plain[i] = '\0';
  return plain;
}

/* Prints the list and returns the instance to open, 0 if it is not there. */
static uint32_t pickHub(const char* wanted) {
  HidDevRecord* list = NULL;
  uint32_t count = 0;
  uint32_t i;
  uint32_t picked = 0;
  const uint32_t number = wanted != NULL ? (uint32_t)strtoul(wanted, NULL, 0) : 0;
  if (!QZ_ListAllHidDev(&list, &count)) return 0;
  printf("hubs: %u\n", (unsigned)count);
  for (i = 0; i < count; ++i) {
    printf("  %u  level %u  port %u", (unsigned)list[i].dwInst, (unsigned)list[i].Level,
           (unsigned)list[i].Port);
    printf("  %s:", plainText(list[i].VID));
    printf("%s", plainText(list[i].PID));
    printf("  %s\n", plainText(list[i].LocationPath));
    if (picked == 0 && (wanted == NULL || list[i].dwInst == number)) picked = list[i].dwInst;
  }
  QZ_FreeDevList(list);
  return picked;
}

static int update(void* hub, const char* image) {
  uint16_t imageVersion = 0;
  uint16_t before = 0;
  uint16_t after = 0;
  uint8_t isRunning;
  if (!QZ_ReadBinVersion(hub, image, &imageVersion)) return fail("cannot read the image's version");
  printVersion("image", imageVersion);
  isRunning = QZ_ReadDevVersion(hub, &before);
  if (isRunning) {
    printVersion("hub", before);
  } else {
    printf("hub: runs its loader\n");
  }
  if (!QZ_UpdateDev(hub, image, showProgress)) {
    if (g_isTerminal) putchar('\n');
    return fail(
        "the update failed; UPDATE_HUB_LOG=FILE logs why, and the hub can be updated again");
  }
  if (g_isTerminal) putchar('\n');
  if (!QZ_ReadDevVersion(hub, &after)) return fail("the hub does not run its new firmware");
  if (isRunning) {
    printf("updated: %x.%02x -> %x.%02x\n", (unsigned)(before >> 8), (unsigned)(before & 0xFF),
           (unsigned)(after >> 8), (unsigned)(after & 0xFF));
  } else {
    printf("updated: loader -> %x.%02x\n", (unsigned)(after >> 8), (unsigned)(after & 0xFF));
  }
  return 0;
}

int main(int argc, char** argv) {
  const char* log;
  const char* refusal;
  uint32_t number;
  void* hub;
  int result;
  if (argc < 2 || argc > 3) return fail("usage: update_hub IMAGE [DEVINST]");
  refusal = whyNoImage(argv[1]);
  if (refusal != NULL) return fail(refusal);
  g_isTerminal = IS_TERMINAL(stdout);
  log = getenv("UPDATE_HUB_LOG");
  if (log != NULL) {
    if (!QZ_SetLogPath(log)) return fail("UPDATE_HUB_LOG names no file in a writable folder");
    QZ_ConfigLog(1, 0);
  }
  number = pickHub(argc == 3 ? argv[2] : NULL);
  if (number == 0) return fail("no such hub is attached");
  hub = QZ_OpenHid(number);
  if (hub == NULL) return fail("the hub does not answer");
  result = update(hub, argv[1]);
  QZ_CloseDev(hub);
  return result;
}
