// Measures what the library adds to the write phase of an update on a real kernel. Compares the
// time of its flash writes with the same ioctls in a bare loop, and with the same reports through
// the hidapi library if that is installed. They take turns: after each write of the library, the
// same report is sent again in the other ways, which changes nothing in the flash. So other work on
// the computer disturbs all of them alike. The medians are compared.
#include <dlfcn.h>
#include <linux/hidraw.h>
#include <linux/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <vector>

#include "vm/host.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kUpdates = 2;
constexpr std::size_t kMostWrites = 4096;

/// The calls of hidapi that send a report; without them, hidapi is not measured.
class CHidapi {
 public:
  CHidapi() {
    void* const library = dlopen("libhidapi-hidraw.so.0", RTLD_NOW);
    if (library == nullptr) return;
    Find(library, "hid_open_path", m_Open);
    Find(library, "hid_write", m_Write);
  }

  /// Sends to the device that is open with that descriptor. After the device has come back as
  /// another instance, the first call only opens it.
  bool Write(int hidraw, const unsigned char* report, std::size_t size) {
    if (m_Device != nullptr && m_Write(m_Device, report, size) >= 0) return true;
    Open(hidraw);
    return false;
  }

 private:
  void Open(int hidraw) {
    std::array<char, 64> path{};
    const std::string link = "/proc/self/fd/" + std::to_string(hidraw);
    if (m_Open == nullptr || readlink(link.c_str(), path.data(), path.size() - 1) <= 0) return;
    m_Device = m_Open(path.data());
  }
  template <class Function>
  static void Find(void* library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(library, name));
  }

  void* (*m_Open)(const char*) = nullptr;
  int (*m_Write)(void*, const unsigned char*, std::size_t) = nullptr;
  void* m_Device = nullptr;
};

std::vector<double> g_Library, g_Bare, g_Hidapi;  // ms from the end of one write to the next's end
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
  if (g_IsWriting)
    periods.push_back(std::chrono::duration<double, std::milli>(now - g_End).count());
  g_End = now;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values.empty() ? 0 : values[values.size() / 2];
}

void Repeat(int file, unsigned long request, void* argument) {
  static CHidapi hidapi;
  const auto* report = static_cast<const unsigned char*>(argument);
  AddPeriod(g_Library);
  const bool isHidapiFirst = g_Library.size() % 2 != 0;
  for (const bool isHidapi : {isHidapiFirst, !isHidapiFirst}) {
    g_End = Clock::now();
    if (!isHidapi) {
      CallKernel(file, request, argument);
      AddPeriod(g_Bare);
    } else if (hidapi.Write(file, report, _IOC_SIZE(request))) {
      AddPeriod(g_Hidapi);
    }
  }
  g_End = Clock::now();
  g_IsWriting = true;
}

void PrintRow(const char* name, const std::vector<double>& others, double limit) {
  const double library = Median(g_Library), other = Median(others);
  std::printf("%s\t%.3f ms\t%.3f ms\t%.3f times\t%.3f times\t%s\n", name, library, other,
              library / other, limit, library <= limit * other ? "pass" : "MISS");
}

}  // namespace

// Replaces the function of the C library, also for the library under test.
extern "C" __attribute__((visibility("default"))) int ioctl(int file, unsigned long request,
                                                            ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  const int result = CallKernel(file, request, argument);
  if (result >= 0 && IsFlashWrite(request, static_cast<const unsigned char*>(argument))) {
    Repeat(file, request, argument);
  } else {
    g_IsWriting = false;
  }
  return result;
}

int main() {
  using namespace qzhid::vm;
  const std::string image = MakeImage("0210");
  const Attached attached(HubScenario());
  for (auto* times : {&g_Library, &g_Bare, &g_Hidapi}) times->reserve(kMostWrites);
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
  PrintRow("write_phase/kernel/ioctl", g_Bare, 1.05);
  // "No slower" allows half a per cent, because repeated runs differ by that much.
  if (!g_Hidapi.empty()) PrintRow("write_phase/kernel/hidapi", g_Hidapi, 1.005);
  return 0;
}
