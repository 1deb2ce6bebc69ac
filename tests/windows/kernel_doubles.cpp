#include "windows/kernel_doubles.h"

#include <utility>

#include "virtualhub/bus/current_machine.h"
#include "windows/open_files.h"

namespace doubles {

namespace platform = qzhid::platform;

namespace {

HANDLE WINAPI OpenFile(LPCWSTR path, DWORD access, DWORD sharing, SECURITY_ATTRIBUTES* security,
                       DWORD disposition, DWORD flags, HANDLE pattern) {
  const std::wstring interfacePath = OpenFiles::Instance().InterfaceOf(path);
  platform::HidDevice device;
  if (!interfacePath.empty()) {
    const bool isRight = access == (GENERIC_READ | GENERIC_WRITE) &&
                         sharing == (FILE_SHARE_READ | FILE_SHARE_WRITE) &&
                         disposition == OPEN_EXISTING && flags == FILE_FLAG_OVERLAPPED;
    const platform::Status status = isRight ? OpenHidDevice(interfacePath, device)
                                            : platform::Status::Failure(ERROR_INVALID_PARAMETER);
    SetLastError(status.code);
    if (!status) return INVALID_HANDLE_VALUE;
  }
  const HANDLE file = CreateFileW(path, access, sharing, security, disposition, flags, pattern);
  if (device && file != INVALID_HANDLE_VALUE) {
    OpenFiles::Instance().Remember(file, interfacePath, std::move(device));
  }
  return file;
}

HANDLE WINAPI MakeEvent(SECURITY_ATTRIBUTES* security, BOOL manual, BOOL signalled, LPCWSTR name) {
  platform::Event event;
  const bool isRight = !manual && !signalled && name == nullptr;
  const platform::Status status = isRight ? platform::CreateReportEvent(event)
                                          : platform::Status::Failure(ERROR_INVALID_PARAMETER);
  SetLastError(status.code);
  if (!status) return nullptr;
  const HANDLE handle = CreateEventW(security, manual, signalled, name);
  if (handle != nullptr) OpenFiles::Instance().Remember(handle, std::move(event));
  return handle;
}

BOOL WINAPI Close(HANDLE handle) {
  OpenFiles::Instance().Forget(handle);
  return CloseHandle(handle);
}

void WINAPI Pause(DWORD milliseconds) { virtualhub::HoldCurrentMachine()->SleepMs(milliseconds); }

BOOL WINAPI ReadCounter(LARGE_INTEGER* counter) {
  counter->QuadPart = static_cast<LONGLONG>(virtualhub::HoldCurrentMachine()->clock().NowUs());
  return TRUE;
}

BOOL WINAPI ReadFrequency(LARGE_INTEGER* frequency) {
  frequency->QuadPart = 1000000;  // the virtual clock counts microseconds
  return TRUE;
}

void WINAPI TellDebugger(LPCWSTR text) { platform::DebugOutput(text); }

}  // namespace

void UseKernelDoubles(HMODULE module) {
  const std::pair<const char*, void*> services[] = {
      {"CreateFileW", reinterpret_cast<void*>(&OpenFile)},
      {"CreateEventW", reinterpret_cast<void*>(&MakeEvent)},
      {"CloseHandle", reinterpret_cast<void*>(&Close)},
      {"Sleep", reinterpret_cast<void*>(&Pause)},
      {"QueryPerformanceCounter", reinterpret_cast<void*>(&ReadCounter)},
      {"QueryPerformanceFrequency", reinterpret_cast<void*>(&ReadFrequency)},
      {"OutputDebugStringW", reinterpret_cast<void*>(&TellDebugger)}};
  for (const auto& [name, replacement] : services) Redirect(module, name, replacement);
}

}  // namespace doubles
