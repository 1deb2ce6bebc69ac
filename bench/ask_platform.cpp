// What a listing asks the platform, without the library.
#include "machine.h"
#include "rows.h"

namespace qzhid::bench {

namespace {

constexpr std::size_t kTextCapacity = 1024;

void Expect(bool isDone) {
  if (!isDone) Fail("a call of the platform failed");
}

/// What a listing asks the platform of the node at that index, apart from its properties.
platform::DevInst TryNode(std::uint32_t index) {
  platform::NodeSet set;
  platform::DevInst node = 0;
  platform::DeviceInterface place;
  std::wstring path;
  std::string id;
  platform::HidDevice device;
  platform::Event event;
  platform::PreparsedData preparsed;
  platform::HidCaps caps;
  Expect(platform::OpenNodeSet(platform::HidClassGuid(), set) &&
         platform::EnumNode(set, index, node) && platform::FirstInterface(set, index, place) &&
         platform::InterfacePath(set, place, path) && platform::OpenHidDevice(path, device) &&
         platform::CreateReportEvent(event) && platform::GetPreparsedData(device, preparsed) &&
         platform::GetCaps(preparsed, caps) && platform::GetLibraryPath(id) &&
         platform::GetDeviceIdA(node, kTextCapacity, id));
  return node;
}

void AskProperties(platform::DevInst node) {
  std::wstring text;
  std::string id;
  platform::DevInst parent = 0;
  std::uint32_t address = 0;
  using platform::TextProperty;
  Expect(platform::GetTextProperty(node, TextProperty::HardwareIds, kTextCapacity, text) &&
         platform::GetParent(node, parent) && platform::GetAddressProperty(parent, address) &&
         platform::GetTextProperty(parent, TextProperty::LocationPaths, kTextCapacity, text));
  while (id.find("ROOT_HUB") == std::string::npos) {
    Expect(platform::GetParent(parent, parent) &&
           platform::GetDeviceIdA(parent, kTextCapacity, id));
  }
}

}  // namespace

void AskPlatform() {
  platform::NodeSet set;
  platform::DevInst node = 0;
  std::vector<platform::DevInst> nodes;
  Expect(platform::OpenNodeSet(platform::HidClassGuid(), set).ok);
  for (std::uint32_t index = 0; platform::EnumNode(set, index, node); ++index) {
    nodes.push_back(TryNode(index));
  }
  Expect(platform::CloseNodeSet(set).ok);
  for (const platform::DevInst found : nodes) AskProperties(found);
}

}  // namespace qzhid::bench
