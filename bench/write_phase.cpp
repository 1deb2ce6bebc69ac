// Measures what the library adds to the write phase of an update: the time of its flash writes
// against a bare loop of the same ioctls. The two take turns: behind each write of the library the
// same report is sent once more, which changes nothing in flash, so that other work on the host
// disturbs both alike. The medians are compared.
#include <linux/hidraw.h>
#include <linux/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <vector>

#include "vm/host.h"

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr int kUpdates = 2;
constexpr std::size_t kMostWrites = 4096;

std::vector<double> g_Library, g_Bare;  // ms from the end of one write to the end of the next
bool g_IsWriting = false;
Clock::time_point g_End;  // of the last write

bool IsFlashWrite(unsigned long request, const unsigned char* report) {
  const unsigned size = _IOC_SIZE(request);
  return request == HIDIOCSOUTPUT(size) && size > 2 && report[1] == 0x40 && report[2] == 0xC8;
}

int CallKernel(int file, unsigned long request, void* argument) {
  return static_cast<int>(syscall(SYS_ioctl, file, request, argument));
}

void AddPeriod(std::vector<double>& periods) {
  const Clock::time_point now = Clock::now();
  if (g_IsWriting) periods.push_back(Milliseconds(now - g_End).count());
  g_End = now;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values.empty() ? 0 : values[values.size() / 2];
}

}  // namespace

// Stands in front of the C library's, for the library under test, too.
extern "C" __attribute__((visibility("default"))) int ioctl(int file, unsigned long request,
                                                            ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  const int result = CallKernel(file, request, argument);
  const bool isFlashWrite = IsFlashWrite(request, static_cast<const unsigned char*>(argument));
  if (isFlashWrite && result >= 0) {
    AddPeriod(g_Library);
    g_IsWriting = true;
    CallKernel(file, request, argument);
    AddPeriod(g_Bare);
  } else {
    g_IsWriting = false;
  }
  return result;
}

int main() {
  using namespace qzhid::vm;
  const std::string image = MakeImage("0210");
  const Attached attached(HubScenario());
  g_Library.reserve(kMostWrites);
  g_Bare.reserve(kMostWrites);
  for (int update = 0; update < kUpdates; ++update) {
    const auto records = List();
    void* const hub = records.empty() ? nullptr : QZ_OpenHid(records[0].dwInst);
    const bool isDone = QZ_UpdateDev(hub, image.c_str(), nullptr) != 0;
    QZ_CloseDev(hub);
    if (!isDone) {
      std::puts("write phase: not measured, an update failed");
      return 1;
    }
  }
  const double library = Median(g_Library), bare = Median(g_Bare);
  std::printf(
      "write phase: %zu reports in %d updates, each %.3f ms by the library, %.3f ms bare, "
      "ratio %.3f\n",
      g_Library.size(), kUpdates, library, bare, library / bare);
  return 0;
}
