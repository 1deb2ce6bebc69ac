/*
 * Updates a hub: lists the hubs, checks that the image is for the chosen one, shows the versions,
 * writes the image and shows what the hub then runs. After a failure it waits until the hub is back
 * on its port, and tries again.
 *
 *   update_hub IMAGE [LOCATION]
 *
 * LOCATION is the location path of the hub, as the list shows it; it may be omitted if there is
 * only one hub.
 * The environment variable UPDATE_HUB_LOG names a file to log every step to.
 *
 * Ends with "updated: OLD -> NEW" and exit status 0, or with a line on standard error and 1.
 */
#if !defined(_WIN32)
#define _XOPEN_SOURCE 700 /* isatty, nanosleep, S_IFMT; NOLINT(bugprone-reserved-identifier) */
#include <time.h>
#include <unistd.h>
#define IS_TERMINAL(file) isatty(fileno(file))
#else
#include <io.h>
#include <windows.h>
#define IS_TERMINAL(file) _isatty(_fileno(file))
#endif
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "QzHidAPI.h"

enum { BAR_WIDTH = 40, TRIES = 3 };

/* A hub that lost its power is given half a minute to come back. */
enum { LISTS = 150, MS_BETWEEN_LISTS = 200 };

/* In bytes. The version of an image is before the first limit; no flash exceeds the second. */
enum { SHORTEST_IMAGE = 0x7FA8, LONGEST_IMAGE = 0x1000000 };

static int g_isTerminal;
static int32_t g_shown = -1;

/* Of the hub; empty until it is chosen. It stays the same, while the instance may change. */
static char g_location[QZ_RECORD_TEXT_UNITS];

static void waitForBus(void) {
#if defined(_WIN32)
  Sleep(MS_BETWEEN_LISTS);
#else
  const struct timespec time = {0, MS_BETWEEN_LISTS * 1000000L};
  nanosleep(&time, NULL);
#endif
}

static const char* versionText(uint16_t version) {
  static char text[8];
  snprintf(text, sizeof(text), "%x.%02x", (unsigned)(version >> 8), (unsigned)(version & 0xFF));
  return text;
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

/* Prints the list; when no location was chosen, and all records are of one hub, chooses that. */
static void chooseHub(const HidDevRecord* list, uint32_t count) {
  uint32_t i;
  int isOne = count > 0;
  printf("hubs: %u\n", (unsigned)count);
  for (i = 0; i < count; ++i) {
    printf("  %s:", plainText(list[i].VID));
    printf("%s", plainText(list[i].PID));
    printf("  %s\n", plainText(list[i].LocationPath));
    if (memcmp(list[i].LocationPath, list[0].LocationPath, sizeof(list[0].LocationPath)) != 0) {
      isOne = 0;
    }
  }
  if (isOne && g_location[0] == '\0') strcpy(g_location, plainText(list[0].LocationPath));
}

/* The instance of the hub at the location, 0 if it is not there. */
static uint32_t findHub(int isFirst) {
  HidDevRecord* list = NULL;
  uint32_t count = 0;
  uint32_t i;
  uint32_t found = 0;
  if (!QZ_ListAllHidDev(&list, &count)) return 0;
  if (isFirst) chooseHub(list, count);
  for (i = 0; i < count && found == 0; ++i) {
    if (strcmp(plainText(list[i].LocationPath), g_location) == 0) found = list[i].dwInst;
  }
  QZ_FreeDevList(list);
  return found;
}

/* Opens the hub, which may be away for a while; null if it stays away or does not answer. */
static void* openHub(void) {
  int lists;
  for (lists = LISTS; lists > 0; --lists) {
    const uint32_t number = findHub(0);
    if (number != 0) return QZ_OpenHid(number);
    waitForBus();
  }
  return NULL;
}

/* A loader may have a product id of its own. */
static const char* whyNotForHub(const char* image, uint32_t number, int isRunning) {
  uint32_t imageVid;
  uint32_t imagePid;
  uint32_t vid;
  uint32_t pid;
  if (!QZ_GetHidBinFileVIDPID(image, &imageVid, &imagePid)) return "cannot read the image's ids";
  if (!QZ_GetHubVIDPIDFromHidDevice(number, &vid, &pid)) return "the hub does not answer";
  if (imageVid != vid) return "the image is for a hub of another vendor";
  if (isRunning && imagePid != pid) return "the image is for another product";
  return NULL;
}

static int runsImage(void* hub, uint16_t wanted) {
  uint16_t version = 0;
  return QZ_ReadDevVersion(hub, &version) && version == wanted;
}

/* Null when the hub runs the image in the end, otherwise what went wrong. */
static const char* update(const char* image, uint16_t wanted) {
  int tries;
  for (tries = TRIES; tries > 0; --tries) {
    int isDone;
    void* hub = openHub();
    if (hub == NULL) return "the hub is gone; plug it in again";
    /* The hub may have come back only after the library had stopped waiting for it. */
    isDone = (tries < TRIES && runsImage(hub, wanted)) ||
             (QZ_UpdateDev(hub, image, showProgress) && runsImage(hub, wanted));
    QZ_CloseDev(hub); /* a handle may not suit the hub any more after a failure */
    if (g_isTerminal) putchar('\n');
    if (isDone) return NULL;
    if (tries > 1) fail("the update failed; trying again");
    g_shown = -1;
  }
  return "the update failed; UPDATE_HUB_LOG=FILE logs why, and the hub can be updated again";
}

int main(int argc, char** argv) {
  const char* log;
  const char* trouble;
  uint32_t number;
  void* hub;
  uint8_t isRunning;
  uint16_t wanted = 0;
  uint16_t before = 0;
  if (argc < 2 || argc > 3) return fail("usage: update_hub IMAGE [LOCATION]");
  trouble = whyNoImage(argv[1]);
  if (trouble != NULL) return fail(trouble);
  g_isTerminal = IS_TERMINAL(stdout);
  log = getenv("UPDATE_HUB_LOG");
  if (log != NULL) {
    if (!QZ_SetLogPath(log)) return fail("UPDATE_HUB_LOG names no file in a writable folder");
    QZ_ConfigLog(1, 0);
  }
  if (argc == 3) snprintf(g_location, sizeof(g_location), "%s", argv[2]);
  number = findHub(1);
  if (number == 0) return fail("attach the hub, or name one of several by its location");
  hub = QZ_OpenHid(number);
  if (hub == NULL) return fail("the hub does not answer");
  if (!QZ_ReadBinVersion(hub, argv[1], &wanted)) return fail("cannot read the image's version");
  isRunning = QZ_ReadDevVersion(hub, &before);
  QZ_CloseDev(hub);
  trouble = whyNotForHub(argv[1], number, isRunning);
  if (trouble != NULL) return fail(trouble);
  printf("image: %s\n", versionText(wanted));
  printf("hub: %s\n", isRunning ? versionText(before) : "runs its loader");
  trouble = update(argv[1], wanted);
  if (trouble != NULL) return fail(trouble);
  printf("updated: %s -> ", isRunning ? versionText(before) : "loader");
  printf("%s\n", versionText(wanted));
  return 0;
}
