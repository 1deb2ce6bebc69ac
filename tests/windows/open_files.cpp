#include "windows/open_files.h"

namespace doubles {

using qzhid::platform::Event;
using qzhid::platform::HidDevice;

namespace {

// File names hold no colon, interface paths hold one.
constexpr wchar_t kColon = L':', kStandIn = L'@';

std::wstring Replaced(std::wstring text, wchar_t from, wchar_t to) {
  for (wchar_t& unit : text) unit = unit == from ? to : unit;
  return text;
}

std::wstring PathOfHandle(HANDLE handle) {
  wchar_t path[1024];
  const DWORD units = GetFinalPathNameByHandleW(handle, path, 1024, 0);
  return units < 1024 ? std::wstring(path, units) : std::wstring();
}

}  // namespace

OpenFiles& OpenFiles::Instance() {
  static OpenFiles instance;
  return instance;
}

OpenFiles::OpenFiles() {
  wchar_t temporary[MAX_PATH];
  folder_.assign(temporary, GetTempPathW(MAX_PATH, temporary));
  folder_ += L"hid-interfaces-" + std::to_wstring(GetCurrentProcessId());
  CreateDirectoryW(folder_.c_str(), nullptr);
  folder_ += L'\\';
}

std::wstring OpenFiles::FileOf(const std::wstring& interfacePath) {
  std::wstring path = folder_ + Replaced(interfacePath, kColon, kStandIn);
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                  nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
  return path;
}

std::wstring OpenFiles::InterfaceOf(const std::wstring& filePath) const {
  const std::wstring parent = folder_.substr(folder_.rfind(L"hid-interfaces-"));
  const std::size_t found = filePath.rfind(parent);
  if (found == std::wstring::npos) return {};
  return Replaced(filePath.substr(found + parent.size()), kStandIn, kColon);
}

void OpenFiles::Remember(HANDLE handle, const std::wstring& interfacePath, HidDevice device) {
  const std::lock_guard<std::mutex> guard(mutex_);
  devices_[handle] = {interfacePath, std::move(device)};
}

void OpenFiles::Remember(HANDLE handle, Event event) {
  const std::lock_guard<std::mutex> guard(mutex_);
  events_[handle] = std::move(event);
}

void OpenFiles::Forget(HANDLE handle) {
  const std::lock_guard<std::mutex> guard(mutex_);
  devices_.erase(handle);
  events_.erase(handle);
}

const HidDevice& OpenFiles::DeviceOf(HANDLE handle) {
  const std::lock_guard<std::mutex> guard(mutex_);
  const std::wstring interfacePath = InterfaceOf(PathOfHandle(handle));
  OpenDevice& open = devices_[handle];
  if (open.interfacePath == interfacePath) return open.device;
  open = {interfacePath, nullptr};
  OpenHidDevice(interfacePath, open.device);
  return open.device;
}

}  // namespace doubles
