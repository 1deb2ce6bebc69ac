// hid.dll, on the machine.
#include "windows/kernel_doubles.h"

// After the general Windows header.
extern "C" {
#include <hidsdi.h>
}

#include <algorithm>
#include <memory>

namespace platform = qzhid::platform;
using doubles::Answer;
using doubles::DeviceOf;

namespace {

// The library, or the program with its backend, is on the machine as soon as it is loaded.
const bool g_isInUse = [] {
  const HMODULE library = GetModuleHandleW(L"QzHidAPI.dll");
  doubles::UseKernelDoubles(library != nullptr ? library : GetModuleHandleW(nullptr));
  return true;
}();

platform::PreparsedData* FromOpaque(PHIDP_PREPARSED_DATA data) {
  return reinterpret_cast<platform::PreparsedData*>(data);
}

}  // namespace

extern "C" {

void NTAPI HidD_GetHidGuid(LPGUID guid) {
  const platform::Guid found = platform::HidClassGuid();
  *guid = {found.data1, found.data2, found.data3, {}};
  std::copy(std::begin(found.data4), std::end(found.data4), guid->Data4);
}

BOOLEAN NTAPI HidD_GetPreparsedData(HANDLE handle, PHIDP_PREPARSED_DATA* data) {
  auto preparsed = std::make_unique<platform::PreparsedData>();
  const platform::Status status = GetPreparsedData(DeviceOf(handle), *preparsed);
  if (status) *data = reinterpret_cast<PHIDP_PREPARSED_DATA>(preparsed.release());
  return Answer(status);
}

BOOLEAN NTAPI HidD_FreePreparsedData(PHIDP_PREPARSED_DATA data) {
  delete FromOpaque(data);
  return TRUE;
}

NTSTATUS NTAPI HidP_GetCaps(PHIDP_PREPARSED_DATA data, PHIDP_CAPS caps) {
  platform::HidCaps found;
  const platform::Status status = GetCaps(*FromOpaque(data), found);
  if (!status) return static_cast<NTSTATUS>(status.code);
  *caps = {};
  caps->OutputReportByteLength = found.outputReportLength;
  caps->InputReportByteLength = found.inputReportLength;
  return HIDP_STATUS_SUCCESS;
}

BOOLEAN NTAPI HidD_GetIndexedString(HANDLE handle, ULONG index, PVOID buffer, ULONG bytes) {
  std::wstring text;
  const platform::Status status = GetIndexedString(DeviceOf(handle), index, bytes, text);
  if (status) std::copy_n(text.c_str(), text.size() + 1, static_cast<wchar_t*>(buffer));
  return Answer(status);
}

BOOLEAN NTAPI HidD_SetOutputReport(HANDLE handle, PVOID report, ULONG length) {
  const auto* const bytes = static_cast<const std::uint8_t*>(report);
  return Answer(SetOutputReport(DeviceOf(handle), bytes, length));
}

BOOLEAN NTAPI HidD_GetInputReport(HANDLE handle, PVOID report, ULONG length) {
  return Answer(GetInputReport(DeviceOf(handle), static_cast<std::uint8_t*>(report), length));
}

}  // extern "C"
