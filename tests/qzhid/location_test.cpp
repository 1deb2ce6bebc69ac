// Port ids.
#include "qzhid/location.h"

#include <gtest/gtest.h>

namespace qzhid {

TEST(PortId, IsMadeOfTheControllerTheRootHubAndThePorts) {
  const struct {
    const char *location, *controller, *port;
  } rows[] = {
      {"PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#USB(1)", "1400", "1-3.1"},
      {"PCIROOT(0)#PCI(1400)#USBROOT(1)#USB(2)", "1400", "2-2"},
      {"PCIROOT(0)#PCI(1C00)#PCI(0002)#USBROOT(0)#USB(12)", "1C00.0002", "1-12"},
      {"PCIROOT(1)#PCI(0000)#USBROOT(0)#USB(1)", "1.0000", "1-1"},
      {"ACPI(_SB_)#ACPI(USB0)#USBROOT(0)#USB(1)#USBMI(2)", "_SB_.USB0", "1-1:2"},
      {"USBROOT(0)#USB(4)", "", "1-4"},
      {"", "", ""},
      {"PCIROOT(0)#PCI(1400)", "", ""},
      {"PCIROOT(0)#PCI(1400)#USBROOT(x)#USB(3)", "", ""},
      {"PCIROOT(0)#PCI(1400)#USBROOT(0)#HUB(3)", "", ""},
      {"nowhere", "", ""},
      {"##(", "", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.location);
    const PortId id = ReadPortId(row.location);
    EXPECT_EQ(row.controller, id.controller);
    EXPECT_EQ(row.port, id.port);
  }
}

}  // namespace qzhid
