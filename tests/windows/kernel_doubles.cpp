#include "windows/kernel_doubles.h"

#include <map>
#include <mutex>

#include "virtualhub/bus/current_machine.h"
#include "windows/import_table.h"

namespace {

std::mutex g_lock;
std::map<HANDLE, std::shared_ptr<void>> g_open;  // devices and events, by their addresses

template <class Object>
HANDLE Keep(Object object) {
  const auto kept = std::make_shared<Object>(std::move(object));
  const std::lock_guard<std::mutex> guard(g_lock);
  g_open[kept.get()] = kept;
  return kept.get();
}

HANDLE WINAPI OpenFile(LPCWSTR path, DWORD access, DWORD sharing, SECURITY_ATTRIBUTES* security,
                       DWORD disposition, DWORD flags, HANDLE pattern) {
  if (!std::wstring_view(path).starts_with(L"virtualhub:")) {
    return CreateFileW(path, access, sharing, security, disposition, flags, pattern);
  }
  const bool isRight = access == (GENERIC_READ | GENERIC_WRITE) &&
                       sharing == (FILE_SHARE_READ | FILE_SHARE_WRITE) &&
                       disposition == OPEN_EXISTING && flags == FILE_FLAG_OVERLAPPED;
  platform::HidDevice device;
  const platform::Status status =
      isRight ? OpenHidDevice(path, device) : platform::Status::Failure(ERROR_INVALID_PARAMETER);
  return Answer(status) ? Keep(std::move(device)) : INVALID_HANDLE_VALUE;
}

HANDLE WINAPI MakeEvent(SECURITY_ATTRIBUTES*, BOOL manual, BOOL signalled, LPCWSTR name) {
  platform::Event event;
  const bool isRight = !manual && !signalled && name == nullptr;
  const platform::Status status = isRight ? platform::CreateReportEvent(event)
                                          : platform::Status::Failure(ERROR_INVALID_PARAMETER);
  return Answer(status) ? Keep(std::move(event)) : nullptr;
}

BOOL WINAPI Close(HANDLE handle) {
  const std::lock_guard<std::mutex> guard(g_lock);
  return g_open.erase(handle) != 0 || CloseHandle(handle);
}

void WINAPI Pause(DWORD milliseconds) { platform::SleepMs(milliseconds); }

BOOL WINAPI ReadCounter(LARGE_INTEGER* counter) {
  counter->QuadPart = static_cast<LONGLONG>(virtualhub::HoldCurrentMachine()->clock().NowUs());
  return TRUE;
}

BOOL WINAPI ReadFrequency(LARGE_INTEGER* frequency) {
  frequency->QuadPart = 1000000;  // the virtual clock counts microseconds
  return TRUE;
}

void WINAPI WriteToDebugger(LPCWSTR text) { platform::DebugOutput(text); }

const Replacements kServices = {
    {"CreateFileW", reinterpret_cast<void*>(&OpenFile)},
    {"CreateEventW", reinterpret_cast<void*>(&MakeEvent)},
    {"CloseHandle", reinterpret_cast<void*>(&Close)},
    {"Sleep", reinterpret_cast<void*>(&Pause)},
    {"QueryPerformanceCounter", reinterpret_cast<void*>(&ReadCounter)},
    {"QueryPerformanceFrequency", reinterpret_cast<void*>(&ReadFrequency)},
    {"OutputDebugStringW", reinterpret_cast<void*>(&WriteToDebugger)}};

}  // namespace

const platform::HidDevice& DeviceOf(HANDLE handle) {
  return *static_cast<const platform::HidDevice*>(handle);
}

void UseKernelDoubles(HMODULE module) { ReplaceImports(module, kServices); }
