// Parents, ids and properties of device nodes, through the configuration manager.
#include "platform/system/windows/system.h"

// After the general Windows header.
#include <cfgmgr32.h>

#include <vector>

namespace qzhid::platform {

namespace {

// The property set of names, locations and addresses, and the keys in it; the headers of some
// toolchains declare them without defining them.
constexpr GUID kDeviceProperties = {
    0xA45C254E, 0xDF1C, 0x4EFD, {0x80, 0x20, 0x67, 0xD1, 0x46, 0xA8, 0x50, 0xE0}};
constexpr DEVPROPKEY kHardwareIds = {kDeviceProperties, 3};
constexpr DEVPROPKEY kLocationInfo = {kDeviceProperties, 15};
constexpr DEVPROPKEY kAddress = {kDeviceProperties, 30};
constexpr DEVPROPKEY kLocationPaths = {kDeviceProperties, 37};

const DEVPROPKEY& KeyOf(TextProperty property) {
  switch (property) {
    case TextProperty::HardwareIds:
      return kHardwareIds;
    case TextProperty::LocationInfo:
      return kLocationInfo;
    default:
      return kLocationPaths;
  }
}

Status ToStatus(CONFIGRET result) {
  return result == CR_SUCCESS ? Status{} : Status::Failure(result);
}

// Reads a property into a buffer of `bytes` bytes; `bytes` is its size afterwards.
Status ReadProperty(DevInst node, const DEVPROPKEY& key, void* buffer, ULONG& bytes) {
  DEVPROPTYPE type = 0;
  return ToStatus(
      CM_Get_DevNode_PropertyW(node, &key, &type, static_cast<PBYTE>(buffer), &bytes, 0));
}

}  // namespace

Status GetParent(DevInst node, DevInst& parent) {
  DEVINST found = 0;
  Status status = ToStatus(CM_Get_Parent(&found, node, 0));
  if (status) parent = found;
  return status;
}

Status GetDeviceIdA(DevInst node, std::size_t capacity, std::string& id) {
  std::vector<char> buffer(capacity + 1);
  Status status = ToStatus(CM_Get_Device_IDA(node, buffer.data(), static_cast<ULONG>(capacity), 0));
  if (status) id = buffer.data();
  return status;
}

Status GetDeviceIdW(DevInst node, std::size_t capacity, std::wstring& id) {
  std::vector<wchar_t> buffer(capacity + 1);
  Status status = ToStatus(CM_Get_Device_IDW(node, buffer.data(), static_cast<ULONG>(capacity), 0));
  if (status) id = buffer.data();
  return status;
}

Status GetTextProperty(DevInst node, TextProperty property, std::size_t capacity,
                       std::wstring& text) {
  std::vector<wchar_t> buffer(capacity / sizeof(wchar_t) + 1);
  auto bytes = static_cast<ULONG>(capacity);
  Status status = ReadProperty(node, KeyOf(property), buffer.data(), bytes);
  if (status) text.assign(buffer.data(), bytes / sizeof(wchar_t));
  return status;
}

Status GetAddressProperty(DevInst node, std::uint32_t& address) {
  std::uint32_t found = 0;
  ULONG bytes = sizeof(found);
  Status status = ReadProperty(node, kAddress, &found, bytes);
  if (status) address = found;
  return status;
}

}  // namespace qzhid::platform
