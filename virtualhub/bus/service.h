#pragma once

#include <optional>
#include <string_view>

namespace virtualhub {

/// The services of the machine that a host calls, and that a fault may strike.
enum class Service {
  OpenNodeSet,
  EnumNode,
  FirstInterface,
  InterfacePath,
  CloseNodeSet,
  OpenHidDevice,
  CreateReportEvent,
  GetPreparsedData,
  GetCaps,
  GetIndexedString,
  GetParent,
  GetDeviceIdA,
  GetDeviceIdW,
  HardwareIds,
  LocationInfo,
  LocationPaths,
  GetAddressProperty,
  GetLibraryPath,
  HostVersionStore,
  HostProductName,
  HostUpdateRevision,
  NativeArchitecture,
};

/// As a scenario spells it.
std::string_view NameOf(Service service);

/// The service of that name; none when there is no such service.
std::optional<Service> ServiceNamed(std::string_view name);

/// Whether each call of that service concerns one device.
bool ConcernsDevice(Service service);

}  // namespace virtualhub
