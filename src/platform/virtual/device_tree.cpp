// Parents, ids and properties of device nodes.
#include "platform/platform.h"
#include "platform/system/property_text.h"
#include "platform/unicode.h"
#include "platform/virtual/error_codes.h"
#include "platform/virtual/machine.h"

namespace qzhid::platform {

using virtualhub::Error;
using virtualhub::Node;
using virtualhub::Result;
using virtualhub::Service;

namespace {

// One call for a node that must be present.
template <typename Body>
Status CallForNode(DevInst node, Service service, Body body) {
  const auto machine = HoldMachine();
  return ToStatus(
      machine->Call(service, node, 0, [&](const virtualhub::Machine::View& view) -> Result {
        const Node* found = view.FindNode(node);
        return found == nullptr ? Result{Error::NoSuchNode} : body(*found);
      }));
}

Service ServiceOf(TextProperty property) {
  switch (property) {
    case TextProperty::HardwareIds:
      return Service::HardwareIds;
    case TextProperty::LocationInfo:
      return Service::LocationInfo;
    default:
      return Service::LocationPaths;
  }
}

// The property as the system stores it; false when the node does not have it.
bool FindText(const Node& node, TextProperty property, std::wstring& text) {
  switch (property) {
    case TextProperty::HardwareIds:
      text = AsList(node.hardwareIds);
      return true;
    case TextProperty::LocationInfo:
      if (node.locationInfo) text = AsString(*node.locationInfo);
      return node.locationInfo.has_value();
    default:
      if (node.locationPaths) text = AsList(*node.locationPaths);
      return node.locationPaths.has_value();
  }
}

}  // namespace

Status GetParent(DevInst node, DevInst& parent) {
  return CallForNode(node, Service::GetParent, [&](const Node& found) -> Result {
    if (found.parent == 0) return {Error::NoParent};
    parent = found.parent;
    return {};
  });
}

Status GetDeviceIdA(DevInst node, std::size_t capacity, std::string& id) {
  return CallForNode(node, Service::GetDeviceIdA, [&](const Node& found) -> Result {
    std::string narrow = ToNarrow(ToWide(found.deviceId));
    if (narrow.size() + 1 > capacity) return {Error::TextTooLong};
    id = std::move(narrow);
    return {};
  });
}

Status GetDeviceIdW(DevInst node, std::size_t capacity, std::wstring& id) {
  return CallForNode(node, Service::GetDeviceIdW, [&](const Node& found) -> Result {
    std::wstring wide = ToWide(found.deviceId);
    if (Utf16Units(wide) + 1 > capacity) return {Error::TextTooLong};
    id = std::move(wide);
    return {};
  });
}

Status GetTextProperty(DevInst node, TextProperty property, std::size_t capacity,
                       std::wstring& text) {
  return CallForNode(node, ServiceOf(property), [&](const Node& found) -> Result {
    std::wstring value;
    if (!FindText(found, property, value)) return {Error::NoSuchProperty};
    if (Utf16Units(value) * 2 > capacity) return {Error::TextTooLong};
    text = std::move(value);
    return {};
  });
}

Status GetAddressProperty(DevInst node, std::uint32_t& address) {
  return CallForNode(node, Service::GetAddressProperty, [&](const Node& found) -> Result {
    if (!found.address) return {Error::NoSuchProperty};
    address = *found.address;
    return {};
  });
}

}  // namespace qzhid::platform
