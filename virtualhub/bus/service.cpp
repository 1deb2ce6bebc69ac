#include "virtualhub/bus/service.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace virtualhub {

namespace {

struct Row {
  Service service;
  std::string_view name;
  bool concernsDevice;
};

// In the order of the enumeration.
constexpr Row kRows[] = {
    {Service::OpenNodeSet, "OpenNodeSet", false},
    {Service::EnumNode, "EnumNode", true},
    {Service::FirstInterface, "FirstInterface", true},
    {Service::InterfacePath, "InterfacePath", true},
    {Service::CloseNodeSet, "CloseNodeSet", false},
    {Service::OpenHidDevice, "OpenHidDevice", true},
    {Service::CreateReportEvent, "CreateReportEvent", false},
    {Service::GetPreparsedData, "GetPreparsedData", true},
    {Service::GetCaps, "GetCaps", true},
    {Service::GetIndexedString, "GetIndexedString", true},
    {Service::GetParent, "GetParent", true},
    {Service::GetDeviceIdA, "GetDeviceIdA", true},
    {Service::GetDeviceIdW, "GetDeviceIdW", true},
    {Service::HardwareIds, "HardwareIds", true},
    {Service::LocationInfo, "LocationInfo", true},
    {Service::LocationPaths, "LocationPaths", true},
    {Service::GetAddressProperty, "GetAddressProperty", true},
    {Service::GetLibraryPath, "GetLibraryPath", false},
    {Service::HostVersionStore, "HostVersionStore", false},
    {Service::HostProductName, "HostProductName", false},
    {Service::HostUpdateRevision, "HostUpdateRevision", false},
    {Service::NativeArchitecture, "NativeArchitecture", false},
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
