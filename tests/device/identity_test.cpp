// What makes a device node a device, and the values that a device keeps.
#include "device/device_test.h"

namespace qzhid::test {
namespace {

TEST_F(DeviceTest, PairsAreKeptInOrderAndRemovedOneAtATime) {
  for (std::uint32_t first : {1u, 2u, 1u, 3u}) usb.AddVidPid(first, first * 10);
  for (std::uint32_t second : {1u, 20u, 10u}) usb.RemoveVidPid(1, second);
  std::uint32_t first = 0, second = 0;
  for (std::uint32_t expected : {2u, 1u, 3u}) {
    EXPECT_TRUE(usb.GetVidPid(first, second, expected == 3 ? 2 : 2 - expected));
    EXPECT_EQ(expected, first);
    EXPECT_EQ(expected * 10, second);
  }
  for (std::size_t i : {std::size_t{3}, ~std::size_t{0}}) {
    EXPECT_FALSE(usb.GetVidPid(second, first, i));
    EXPECT_EQ(3u, first) << "nothing is written behind the last pair";
  }
}

TEST_F(DeviceTest, CriteriaAreTestedInTheOrderInWhichTheirKindWasFirstSet) {
  const auto match = [&](CUSBDev& device, const char* said) {
    log.Clear();
    const bool isMatch = device.IsMatch(world->UsbInstance("hub"));
    EXPECT_EQ(said, Said());
    return isMatch;
  };
  EXPECT_TRUE(match(usb, "")) << "no criteria";
  usb.AddVidPid(0x0001, 0x0002);
  usb.SetPosition(0, 5);
  EXPECT_FALSE(match(usb, "1 match id return false.\n")) << "the first refusal decides";
  usb.AddVidPid(0x0818, 0x2E7C);
  usb.SetDevVidPid(0, 0);
  usb.SetTopology(L"");
  EXPECT_TRUE(match(usb,
                    "0 match id return true.\n1 Port & Level Topo Match\n"
                    "0 match topology return true.\n"));
  hid.SetTopology(L"");
  hid.SetPosition(0, 5);
  hid.SetDevVidPid(0x2E7C, 0x0818);
  EXPECT_FALSE(match(hid,
                     "1 Port & Level Topo Match\n0 match topology return true.\n"
                     "1 match id return false.\n"))
      << "its own ids are no pair";
}

TEST_F(DeviceTest, ThePlaceAndTheValuesOfADeviceAreKept) {
  EXPECT_TRUE(usb.GetPos1() == 1 && usb.GetPos2() == 0 && usb.GetTopology().empty());
  usb.SetPosition(4, 7);
  usb.SetTopology(L"PCIROOT(0)");
  usb.SetValue64(0x123456789ABCDEF0);
  usb.SetFlag(0xA5);
  usb.SetFwBuffer({1, 2, 3});
  usb.SetFwBuffer(usb.GetFwBuffer());
  EXPECT_TRUE(usb.GetPos1() == 4 && usb.GetPos2() == 7 && usb.GetTopology() == L"PCIROOT(0)");
  EXPECT_TRUE(usb.GetValue64() == 0x123456789ABCDEF0 && usb.GetFlag() == 0xA5);
  EXPECT_EQ((FwBuffer{1, 2, 3}), usb.GetFwBuffer());
  IDev none;
  EXPECT_EQ(0xFFFFFFFFu, none.GetPos1() & none.GetPos2());
  EXPECT_TRUE(none.UnInit(0) && none.IsPresent(0) && !none.Arrive(1) && !none.IsMatch(1));
}

}  // namespace
}  // namespace qzhid::test
