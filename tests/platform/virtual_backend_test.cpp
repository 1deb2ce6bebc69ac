// What only the virtual backend does: system codes, faults, the machine's clock and host, the count
// of open handles.
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <functional>

#include "platform/code_of.h"
#include "virtualhub/bus/current_machine.h"

namespace qzhid::platform::test {

namespace {

using virtualhub::Fault;
using virtualhub::HandleKind;
using virtualhub::Service;
using enum TextProperty;

/// A machine with one hub, of which everything is open.
class VirtualBackendTest : public ::testing::Test {
 protected:
  VirtualBackendTest() {
    EXPECT_EQ(0, CodeOf(OpenNodeSet(HidClassGuid(), set)));
    EXPECT_EQ(0, CodeOf(FirstInterface(set, 0, found)));
    EXPECT_EQ(0, CodeOf(OpenHidDevice(path, device)));
    EXPECT_EQ(0, CodeOf(GetPreparsedData(device, preparsed)));
    EXPECT_EQ(0, CodeOf(CreateReportEvent(event)));
  }
  ~VirtualBackendTest() override { virtualhub::UninstallMachine(); }

  /// Open devices, events, node sets and parsed descriptors.
  std::array<int, 4> Handles() const {
    return {machine.openHandles(HandleKind::HidDevice), machine.openHandles(HandleKind::Event),
            machine.openHandles(HandleKind::NodeSet),
            machine.openHandles(HandleKind::PreparsedData)};
  }

  virtualhub::Machine& machine = virtualhub::InstallMachine(R"({
      "host": {"architecture": "x86", "product_name": "Test", "major": 11, "minor": 12, "build": 13,
               "update_revision": 14},
      "devices": [{"name": "hub", "port": "1"}]})");
  const DevInst node = machine.HidInstance("hub"), usb = machine.UsbInstance("hub");
  const std::wstring path = L"virtualhub:" + std::to_wstring(node);
  NodeSet set;
  DeviceInterface found;
  HidDevice device;
  PreparsedData preparsed;
  Event event;
  // What calls return.
  NodeSet otherSet;
  HidDevice second;
  Event otherEvent;
  PreparsedData otherPreparsed;
  HidCaps caps;
  DevInst other = 0;
  std::uint32_t address = 0;
  std::wstring wide;
  std::string narrow;
};

TEST_F(VirtualBackendTest, EachServiceFailsAsItsFaultSaysAndOnlyThat) {
  const std::pair<Service, std::function<Status()>> rows[] = {
      {Service::OpenNodeSet, [&] { return OpenNodeSet(HidClassGuid(), otherSet); }},
      {Service::EnumNode, [&] { return EnumNode(set, 0, other); }},
      {Service::FirstInterface, [&] { return FirstInterface(set, 0, found); }},
      {Service::InterfacePath, [&] { return InterfacePath(set, found, wide); }},
      {Service::OpenHidDevice, [&] { return OpenHidDevice(path, second); }},
      {Service::CreateReportEvent, [&] { return CreateReportEvent(otherEvent); }},
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
  machine.AddFault({.on = Fault::On::Call, .service = Service::CloseNodeSet, .code = 4711});
  EXPECT_EQ(4711, CodeOf(CloseNodeSet(set)));
  EXPECT_FALSE(set) << "closed all the same";
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
  std::uint8_t report[321] = {0, 0x40, 0x77};
  const auto send = [&] { return SetOutputReport(device, report, 321); };
  const auto output = [](std::uint32_t nth, Fault::Action action) {
    return Fault{.on = Fault::On::Output, .nth = nth, .action = action, .code = 0};
  };
  machine.AddFault(output(3, Fault::Action::Fail));
  machine.AddFault(output(4, Fault::Action::Hold));
  machine.AddFault(output(5, Fault::Action::Unplug));
  for (other = usb; GetParent(other, other);) {
  }
  const DevInst root = other;
  const std::tuple<const char*, std::uint32_t, std::function<Status()>> rows[] = {
      {"a stall", EPIPE, send},
      {"a report of another length", EINVAL, [&] { return SetOutputReport(device, report, 320); }},
      {"no device", EBADF, [&] { return SetOutputReport(nullptr, report, 321); }},
      {"no device", EBADF, [&] { return GetInputReport(nullptr, report, 321); }},
      {"no device", EBADF, [&] { return GetIndexedString(nullptr, 52, 512, wide); }},
      {"no device", EBADF, [&] { return GetPreparsedData(nullptr, otherPreparsed); }},
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
  const LocalTime start = GetLocalTime();
  SleepMs(61'234);
  EXPECT_EQ(before + 61'234, ClockMs());
  const virtualhub::CalendarTime now = machine.clock().VirtualCalendar();
  const LocalTime local = GetLocalTime();
  EXPECT_EQ(std::tuple(now.year, now.month, now.day, now.hour, now.minute, now.second),
            std::tuple(local.year, local.month, local.day, local.hour, local.minute, local.second));
  EXPECT_EQ((start.minute + 1) % 60, local.minute);
  DebugOutput(L"gr\u00FC\u00DFe");
  EXPECT_EQ(std::vector<std::string>{"grüße"}, machine.recorder().DebugTexts());
}

TEST_F(VirtualBackendTest, EachOpenHandleIsCountedUnderItsKind) {
  EXPECT_EQ((std::array{1, 1, 1, 1}), Handles());
  EXPECT_EQ(0, CodeOf(OpenHidDevice(path, second)));
  EXPECT_EQ((std::array{2, 1, 1, 1}), Handles());
  preparsed.reset();
  EXPECT_EQ((std::array{2, 1, 1, 0}), Handles());
  event.reset();
  EXPECT_EQ((std::array{2, 0, 1, 0}), Handles());
  set.reset();
  EXPECT_EQ((std::array{2, 0, 0, 0}), Handles());
}

}  // namespace

}  // namespace qzhid::platform::test
