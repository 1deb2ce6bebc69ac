// What only the virtual backend does: system codes, faults, the machine's clock and host, the count
// of open handles.
#include <array>
#include <cerrno>
#include <functional>

#include "platform/seam_calls.h"
#include "virtualhub/bus/current_machine.h"

namespace qzhid::platform::test {

namespace {

using virtualhub::Fault;
using virtualhub::HandleKind;
using virtualhub::Service;
using enum TextProperty;

/// A machine with one hub, which is open.
class VirtualBackendTest : public ::testing::Test {
 protected:
  VirtualBackendTest() { EXPECT_EQ(0, CodeOf(OpenHidDevice(path, device))); }
  ~VirtualBackendTest() override { virtualhub::UninstallMachine(); }

  virtualhub::Machine& machine = virtualhub::InstallMachine(R"({
      "host": {"architecture": "x86", "product_name": "Test", "major": 11, "minor": 12, "build": 13,
               "update_revision": 14},
      "devices": [{"name": "hub", "port": "1"}]})");
  const DevInst node = machine.HidInstance("hub");
  const std::wstring path = L"virtualhub:" + std::to_wstring(node);
  HidDevice device;
};

TEST_F(VirtualBackendTest, EachServiceFailsAsItsFaultSaysAndOnlyThat) {
  NodeSet set, otherSet;
  PreparsedData preparsed, otherPreparsed;
  DeviceInterface found;
  ASSERT_EQ(0, CodeOf(OpenNodeSet(HidClassGuid(), set)));
  ASSERT_EQ(0, CodeOf(FirstInterface(set, 0, found)));
  ASSERT_EQ(0, CodeOf(GetPreparsedData(device, preparsed)));
  HidDevice otherDevice;
  Event event;
  HidCaps caps;
  DevInst other = 0;
  std::uint32_t address = 0;
  std::wstring wide;
  std::string narrow;
  const DevInst usb = machine.UsbInstance("hub");
  const std::pair<Service, std::function<Status()>> rows[] = {
      {Service::OpenNodeSet, [&] { return OpenNodeSet(HidClassGuid(), otherSet); }},
      {Service::EnumNode, [&] { return EnumNode(set, 0, other); }},
      {Service::FirstInterface, [&] { return FirstInterface(set, 0, found); }},
      {Service::InterfacePath, [&] { return InterfacePath(set, found, wide); }},
      {Service::OpenHidDevice, [&] { return OpenHidDevice(path, otherDevice); }},
      {Service::CreateReportEvent, [&] { return CreateReportEvent(event); }},
      {Service::GetPreparsedData, [&] { return GetPreparsedData(device, otherPreparsed); }},
      {Service::GetCaps, [&] { return GetCaps(preparsed, caps); }},
      {Service::GetIndexedString, [&] { return GetIndexedString(device, 52, 512, wide); }},
      {Service::GetParent, [&] { return GetParent(node, other); }},
      {Service::GetDeviceIdA, [&] { return GetDeviceIdA(node, 200, narrow); }},
      {Service::GetDeviceIdW, [&] { return GetDeviceIdW(node, 200, wide); }},
      {Service::HardwareIds, [&] { return GetTextProperty(node, HardwareIds, 4096, wide); }},
      {Service::LocationInfo, [&] { return GetTextProperty(usb, LocationInfo, 4096, wide); }},
      {Service::LocationPaths, [&] { return GetTextProperty(usb, LocationPaths, 4096, wide); }},
      {Service::GetAddressProperty, [&] { return GetAddressProperty(usb, address); }},
      {Service::GetLibraryPath, [&] { return GetLibraryPath(narrow); }}};
  for (const auto& [struck, unused] : rows) {
    machine.ClearFaults();
    machine.AddFault({.on = Fault::On::Call, .service = struck, .count = 0, .code = 4711});
    for (const auto& [service, call] : rows) {
      EXPECT_EQ(service == struck ? 4711 : 0, CodeOf(call())) << NameOf(service);
    }
  }
}

TEST_F(VirtualBackendTest, WhatAFaultKeepsFromBeingReadIsMissingFromTheHostsDescription) {
  const auto describe = [] {
    const HostDescription host = DescribeHost();
    return std::tuple(host.hasVersionStore, host.productName.value_or("none"),
                      host.updateRevision.value_or(0), host.architecture, host.major, host.minor,
                      host.build);
  };
  using enum Architecture;
  const std::pair<Service, decltype(describe())> rows[] = {
      {Service::GetCaps, {true, "Test", 14, X86, 11, 12, 13}},  // nothing of this
      {Service::HostVersionStore, {false, "none", 0, X86, 11, 12, 13}},
      {Service::HostProductName, {true, "none", 14, X86, 11, 12, 13}},
      {Service::HostUpdateRevision, {true, "Test", 0, X86, 11, 12, 13}},
      {Service::NativeArchitecture, {true, "Test", 14, Unknown, 11, 12, 13}}};
  for (const auto& [struck, expected] : rows) {
    machine.ClearFaults();
    machine.AddFault({.on = Fault::On::Call, .service = struck, .count = 0});
    EXPECT_EQ(expected, describe()) << NameOf(struck);
  }
}

TEST_F(VirtualBackendTest, FailuresOfTheMachineHaveTheSystemsCodes) {
  NodeSet set;
  DeviceInterface found;
  HidDevice second;
  PreparsedData preparsed;
  Event event;
  HidCaps caps;
  DevInst other = 0;
  std::uint32_t address = 0;
  std::wstring wide;
  std::string narrow;
  EXPECT_EQ(0, CodeOf(OpenNodeSet(HidClassGuid(), set)));
  EXPECT_EQ(0, CodeOf(FirstInterface(set, 0, found)));
  EXPECT_EQ(0, CodeOf(GetPreparsedData(device, preparsed)));
  EXPECT_EQ(0, CodeOf(CreateReportEvent(event)));
  const auto handles = [&](HandleKind kind) { return machine.openHandles(kind); };
  EXPECT_EQ((std::array{1, 1, 1, 1}),
            (std::array{handles(HandleKind::HidDevice), handles(HandleKind::Event),
                        handles(HandleKind::NodeSet), handles(HandleKind::PreparsedData)}));
  std::uint8_t report[321] = {0, 0x40, 0x77};
  const auto send = [&] { return SetOutputReport(device, report, 321); };
  const auto output = [](std::uint32_t nth, Fault::Action action) {
    return Fault{.on = Fault::On::Output, .nth = nth, .action = action, .code = 0};
  };
  machine.AddFault(output(3, Fault::Action::Fail));
  machine.AddFault(output(4, Fault::Action::Hold));
  machine.AddFault(output(5, Fault::Action::Unplug));
  DevInst root = node;
  while (ParentOf(root) != 0) root = ParentOf(root);
  const std::tuple<const char*, std::uint32_t, std::function<Status()>> rows[] = {
      {"a stall", EPIPE, send},
      {"a report of another length", EINVAL, [&] { return SetOutputReport(device, report, 320); }},
      {"no device", EBADF, [&] { return SetOutputReport(nullptr, report, 321); }},
      {"no descriptor", EBADF, [&] { return GetCaps(nullptr, caps); }},
      {"no set", EBADF, [&] { return EnumNode(nullptr, 0, other); }},
      {"no path", ENOENT, [&] { return GetTextProperty(node, LocationPaths, 4096, wide); }},
      {"no place", ENOENT, [&] { return GetTextProperty(node, LocationInfo, 4096, wide); }},
      {"no address", ENOENT, [&] { return GetAddressProperty(node, address); }},
      {"no parent", ENOENT, [&] { return GetParent(root, other); }},
      {"after the last node", ENOENT, [&] { return EnumNode(set, 1, other); }},
      {"no node", ENODEV, [&] { return GetDeviceIdW(0, 5, wide); }},
      {"a long id", ENOBUFS, [&] { return GetDeviceIdW(node, 5, wide); }},
      {"a long id", ENOBUFS, [&] { return GetDeviceIdA(node, 5, narrow); }},
      {"a long string", ENOBUFS, [&] { return GetIndexedString(device, 52, 20, wide); }},
      {"no string", EPIPE, [&] { return GetIndexedString(device, 53, 512, wide); }},
      {"no number", ENOENT, [&] { return OpenHidDevice(L"virtualhub:", second); }},
      {"another prefix", ENOENT, [&] { return OpenHidDevice(L"other" + path, second); }},
      {"another ending", ENOENT, [&] { return OpenHidDevice(path + L"x", second); }},
      {"a long number", ENOENT, [&] { return OpenHidDevice(path + L"0000000000", second); }},
      {"failure without a code", 0, send},
      {"cut off by another program", EBUSY,
       [&] {
         send();
         return OpenHidDevice(path, second);
       }},
      {"unplugged meanwhile", EPROTO, send},
      {"gone", ENODEV, send},
      {"gone", ENOENT, [&] { return FirstInterface(set, 0, found); }},
      {"gone", ENODEV, [&] { return InterfacePath(set, found, wide); }}};
  for (const auto& [what, code, call] : rows) {
    const Status status = call();
    EXPECT_FALSE(status.ok) << what;
    EXPECT_EQ(code, status.code) << what;
  }
}

TEST_F(VirtualBackendTest, TimeIsThatOfTheMachineAndDebuggersAreItsRecorder) {
  machine.recorder().Start();
  const std::uint64_t before = ClockMs();
  SleepMs(61'234);
  EXPECT_EQ(before + 61'234, ClockMs());
  const virtualhub::CalendarTime now = machine.clock().VirtualCalendar();
  const LocalTime local = GetLocalTime();
  EXPECT_EQ(std::tuple(now.year, now.month, now.day, now.hour, now.minute, now.second),
            std::tuple(local.year, local.month, local.day, local.hour, local.minute, local.second));
  DebugOutput(L"gr\u00FC\u00DFe");
  EXPECT_EQ(std::vector<std::string>{"grüße"}, machine.recorder().DebugTexts());
}

}  // namespace

}  // namespace qzhid::platform::test
