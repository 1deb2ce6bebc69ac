// What makes a device node a device.
#include "device/device_test.h"

namespace qzhid::test {
namespace {

TEST_F(DeviceTest, CriteriaAreTestedInTheOrderInWhichTheirKindWasFirstSet) {
  const auto expect = [&](CUSBDev& device, bool isMatch, const char* said) {
    log.Clear();
    EXPECT_EQ(isMatch, device.IsMatch(machine->UsbInstance("hub")));
    EXPECT_EQ(said, Said());
  };
  expect(usb, true, "");
  usb.AddVidPid(0x0001, 0x0002);
  usb.SetPosition(0, 5);
  expect(usb, false, "1 match id return false.\n");  // the first refusal decides
  usb.AddVidPid(0x0818, 0x2E7C);
  usb.SetTopology(L"");
  expect(usb, true,
         "0 match id return true.\n1 Port & Level Topo Match\n0 match topology return true.\n");
  hid.SetTopology(L"");
  hid.SetPosition(0, 5);
  hid.SetDevVidPid(0x2E7C, 0x0818);  // its own ids are no pair
  expect(hid, false,
         "1 Port & Level Topo Match\n0 match topology return true.\n1 match id return false.\n");
}

}  // namespace
}  // namespace qzhid::test
