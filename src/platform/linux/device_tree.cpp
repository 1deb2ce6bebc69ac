// Parents, ids and properties of device nodes.
#include <cerrno>

#include "platform/linux/node_registry.h"
#include "platform/linux/sysfs.h"
#include "platform/system/property_text.h"
#include "platform/unicode.h"

namespace qzhid::platform {

namespace {

std::wstring TextOf(const NodeFacts& node, TextProperty property) {
  switch (property) {
    case TextProperty::HardwareIds:
      return AsList(node.hardwareIds);
    case TextProperty::LocationInfo:
      return node.locationInfo.empty() ? std::wstring() : AsString(node.locationInfo);
    default:
      return node.locationPath.empty() ? std::wstring() : AsList({node.locationPath});
  }
}

}  // namespace

Status GetParent(DevInst node, DevInst& parent) {
  CNodeRegistry& registry = CNodeRegistry::Instance();
  const auto found = registry.Find(node);
  if (!found) return NoDevice();
  if (found->parentFolder.empty()) return Status::Failure(ENOENT);
  DevInst number = 0;
  Status status = registry.NumberOf(found->parentFolder, &ReadUsbNode, number);
  if (!status) return status;
  // What is there now was the parent only if the child is still there, too.
  if (!registry.Find(node)) return NoDevice();
  parent = number;
  return {};
}

Status GetDeviceIdA(DevInst node, std::size_t capacity, std::string& id) {
  const auto found = CNodeRegistry::Instance().Find(node);
  if (!found) return NoDevice();
  if (found->deviceId.size() + 1 > capacity) return Status::Failure(ENOBUFS);
  id = found->deviceId;
  return {};
}

Status GetDeviceIdW(DevInst node, std::size_t capacity, std::wstring& id) {
  std::string narrow;
  Status status = GetDeviceIdA(node, capacity, narrow);
  if (status) id = ToWide(narrow);
  return status;
}

Status GetTextProperty(DevInst node, TextProperty property, std::size_t capacity,
                       std::wstring& text) {
  const auto found = CNodeRegistry::Instance().Find(node);
  if (!found) return NoDevice();
  std::wstring value = TextOf(*found, property);
  if (value.empty()) return Status::Failure(ENOENT);
  if (Utf16Units(value) * 2 > capacity) return Status::Failure(ENOBUFS);
  text = std::move(value);
  return {};
}

Status GetAddressProperty(DevInst node, std::uint32_t& address) {
  const auto found = CNodeRegistry::Instance().Find(node);
  if (!found) return NoDevice();
  if (found->port == 0) return Status::Failure(ENOENT);
  address = found->port;
  return {};
}

}  // namespace qzhid::platform
