#include "virtualhub/bus/service.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace virtualhub {

namespace {

struct Row {
  std::string_view name;
  Service service;
  bool concernsDevice;
};

// In the order of the enumeration.
constexpr Row kRows[] = {
    {"OpenNodeSet", Service::OpenNodeSet, false},
    {"EnumNode", Service::EnumNode, true},
    {"FirstInterface", Service::FirstInterface, true},
    {"InterfacePath", Service::InterfacePath, true},
    {"CloseNodeSet", Service::CloseNodeSet, false},
    {"OpenHidDevice", Service::OpenHidDevice, true},
    {"CreateReportEvent", Service::CreateReportEvent, false},
    {"GetPreparsedData", Service::GetPreparsedData, true},
    {"GetCaps", Service::GetCaps, true},
    {"GetIndexedString", Service::GetIndexedString, true},
    {"GetParent", Service::GetParent, true},
    {"GetDeviceIdA", Service::GetDeviceIdA, true},
    {"GetDeviceIdW", Service::GetDeviceIdW, true},
    {"HardwareIds", Service::HardwareIds, true},
    {"LocationInfo", Service::LocationInfo, true},
    {"LocationPaths", Service::LocationPaths, true},
    {"GetAddressProperty", Service::GetAddressProperty, true},
    {"GetLibraryPath", Service::GetLibraryPath, false},
    {"HostVersionStore", Service::HostVersionStore, false},
    {"HostProductName", Service::HostProductName, false},
    {"HostUpdateRevision", Service::HostUpdateRevision, false},
    {"NativeArchitecture", Service::NativeArchitecture, false},
};

constexpr bool IsInOrder() {
  for (std::size_t i = 0; i < std::size(kRows); ++i) {
    if (kRows[i].service != static_cast<Service>(i)) return false;
  }
  return kRows[std::size(kRows) - 1].service == Service::NativeArchitecture;
}
static_assert(IsInOrder());

const Row& RowOf(Service service) { return kRows[static_cast<std::size_t>(service)]; }

}  // namespace

std::string_view NameOf(Service service) { return RowOf(service).name; }

std::optional<Service> ServiceNamed(std::string_view name) {
  const auto found = std::find_if(std::begin(kRows), std::end(kRows),
                                  [&](const Row& row) { return row.name == name; });
  if (found == std::end(kRows)) return std::nullopt;
  return found->service;
}

bool ConcernsDevice(Service service) { return RowOf(service).concernsDevice; }

}  // namespace virtualhub
