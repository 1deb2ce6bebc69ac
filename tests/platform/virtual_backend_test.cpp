// What only the virtual backend does: system codes, faults, the count of open handles.
#include <gtest/gtest.h>

#include <cerrno>

#include "platform/platform.h"
#include "virtualhub/bus/current_machine.h"

namespace qzhid::platform::test {

namespace {

using virtualhub::Fault, virtualhub::HandleKind, virtualhub::Service;

class VirtualBackendTest : public ::testing::Test {
 protected:
  ~VirtualBackendTest() override { virtualhub::UninstallMachine(); }

  HidDevice Open() {
    HidDevice device;
    EXPECT_TRUE(OpenHidDevice(L"virtualhub:" + std::to_wstring(node), device));
    return device;
  }

  virtualhub::Machine& machine =
      virtualhub::InstallMachine(R"({"devices": [{"name": "hub", "port": "1"}]})");
  const DevInst node = machine.HidInstance("hub");
};

TEST_F(VirtualBackendTest, SystemCodes) {
  const HidDevice device = Open(), none;
  std::uint8_t report[321] = {0, 0x40, 0x77};
  std::wstring text;
  const auto send = [&] { return SetOutputReport(device, report, 321); };
  machine.AddFault({.on = Fault::On::Output, .nth = 3, .action = Fault::Action::Fail, .code = 0});
  machine.AddFault({.on = Fault::On::Output, .nth = 4, .action = Fault::Action::Unplug});
  machine.AddFault(
      {.on = Fault::On::Call, .service = Service::GetDeviceIdW, .nth = 2, .code = 4711});
  const std::pair<std::uint32_t, Status> cases[] = {
      {EPIPE, send()},
      {EINVAL, SetOutputReport(device, report, 320)},
      {EBADF, SetOutputReport(none, report, 321)},
      {ENOENT, GetTextProperty(node, TextProperty::LocationPaths, 4096, text)},
      {ENOBUFS, GetDeviceIdW(node, 5, text)},
      {4711, GetDeviceIdW(node, 200, text)},
      {ENOBUFS, GetIndexedString(device, 52, 20, text)},
      {ENODEV, GetDeviceIdW(0, 5, text)},
      {0, send()},
      {EPROTO, send()},
      {ENODEV, send()}};
  for (const auto& [code, status] : cases) {
    EXPECT_TRUE(!status && status.code == code) << code << ' ' << status.code;
  }
}

TEST_F(VirtualBackendTest, OpenHandlesAreCounted) {
  const auto kinds = {HandleKind::HidDevice, HandleKind::Event, HandleKind::NodeSet,
                      HandleKind::PreparsedData};
  {
    const HidDevice device = Open();
    Event event;
    NodeSet set;
    PreparsedData preparsed;
    ASSERT_TRUE(CreateReportEvent(event) && OpenNodeSet(HidClassGuid(), set));
    ASSERT_TRUE(GetPreparsedData(device, preparsed));
    for (const HandleKind kind : kinds) EXPECT_EQ(1, machine.openHandles(kind));
  }
  for (const HandleKind kind : kinds) EXPECT_EQ(0, machine.openHandles(kind));
}

}  // namespace

}  // namespace qzhid::platform::test
