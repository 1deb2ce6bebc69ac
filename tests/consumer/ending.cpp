// Updates the first hub on a thread that ends at 30 %: by an exception, by itself or cancelled.
// Prints how often the update returned, and whether it was done.
#include <QzHidAPI.h>
#include <pthread.h>

#include <cstdio>
#include <stdexcept>

namespace {

const char* g_image = nullptr;
void (*g_end)() = nullptr;
int g_returned = 0, g_done = 0;

void End(int32_t percent) {
  if (percent == 30) g_end();
}

void* Update(void*) {
  HidDevRecord* list = nullptr;
  uint32_t count = 0;
  if (!QZ_ListAllHidDev(&list, &count)) return nullptr;
  void* const hub = QZ_OpenHid(list[0].dwInst);
  QZ_FreeDevList(list);
  const uint8_t isDone = QZ_UpdateDev(hub, g_image, End);
  ++g_returned;
  g_done += isDone;
  return nullptr;
}

}  // namespace

int main(int, char** arguments) {
  g_image = arguments[1];
  void (*const ends[])() = {[] { throw std::runtime_error("enough"); },
                            [] { pthread_exit(nullptr); },
                            [] {
                              pthread_cancel(pthread_self());
                              pthread_testcancel();
                            },
                            [] {}};
  for (void (*const end)() : ends) {
    g_end = end;
    pthread_t thread{};
    pthread_create(&thread, nullptr, Update, nullptr);
    pthread_join(thread, nullptr);
  }
  std::printf("%d returned, %d done\n", g_returned, g_done);
}
