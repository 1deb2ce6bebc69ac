// What only the virtual backend does: system codes, faults, the machine's clock and host, the count
// of open handles.
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>

#include "platform/code_of.h"
#include "virtualhub/bus/current_machine.h"

namespace qzhid::platform::test {

namespace {

using virtualhub::Fault;
using virtualhub::HandleKind;
using virtualhub::Service;

constexpr const char* kMachine = R"({
    "host": {"architecture": "x86", "product_name": "Test", "major": 11, "minor": 12, "build": 13, "update_revision": 14},
    "devices": [{"name": "hub", "port": "1"}]})";

class VirtualBackendTest : public ::testing::Test {
 protected:
  ~VirtualBackendTest() override { virtualhub::UninstallMachine(); }

  HidDevice Open() {
    HidDevice device;
    EXPECT_EQ(0, CodeOf(OpenHidDevice(path, device)));
    return device;
  }

  virtualhub::Machine& machine = virtualhub::InstallMachine(kMachine);
  const DevInst node = machine.HidInstance("hub");
  const std::wstring path = L"virtualhub:" + std::to_wstring(node);
  std::wstring wide;
  std::string narrow;
};

TEST_F(VirtualBackendTest, EachServiceFailsAsItsFaultSaysAndOnlyThat) {
  const HidDevice device = Open();
  NodeSet set;
  PreparsedData preparsed;
  DeviceInterface found;
  ASSERT_EQ(0, CodeOf(OpenNodeSet(HidClassGuid(), set)));
  ASSERT_EQ(0, CodeOf(FirstInterface(set, 0, found)));
  ASSERT_EQ(0, CodeOf(GetPreparsedData(device, preparsed)));
  NodeSet otherSet;
  HidDevice otherDevice;
  Event event;
  PreparsedData otherPreparsed;
  HidCaps caps;
  DevInst other = 0;
  std::uint32_t address = 0;
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
      {Service::HardwareIds,
       [&] { return GetTextProperty(node, TextProperty::HardwareIds, 4096, wide); }},
      {Service::LocationInfo,
       [&] {
         return GetTextProperty(machine.UsbInstance("hub"), TextProperty::LocationInfo, 4096, wide);
       }},
      {Service::LocationPaths,
       [&] {
         return GetTextProperty(machine.UsbInstance("hub"), TextProperty::LocationPaths, 4096,
                                wide);
       }},
      {Service::GetAddressProperty,
       [&] { return GetAddressProperty(machine.UsbInstance("hub"), address); }},
      {Service::GetLibraryPath, [&] { return GetLibraryPath(narrow); }},
      {Service::CloseNodeSet, [&] { return CloseNodeSet(set); }}};
  for (const auto& [struck, unused] : rows) {
    machine.ClearFaults();
    machine.AddFault({.on = Fault::On::Call, .service = struck, .count = 0, .code = 4711});
    for (const auto& [service, call] : rows) {
      if (service == Service::CloseNodeSet) continue;  // the last one, once
      EXPECT_EQ(service == struck ? 4711 : 0, CodeOf(call())) << NameOf(service);
    }
  }
  EXPECT_EQ(4711, CodeOf(CloseNodeSet(set)));
  EXPECT_FALSE(set) << "given back all the same";
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
  const HidDevice device = Open(), none;
  std::uint8_t report[321] = {0, 0x40, 0x77};
  HidDevice second;
  NodeSet set;
  DevInst other = 0;
  DeviceInterface found;
  std::uint32_t address = 0;
  const auto send = [&] { return SetOutputReport(device, report, 321); };
  ASSERT_EQ(0, CodeOf(OpenNodeSet(HidClassGuid(), set)));
  ASSERT_EQ(0, CodeOf(FirstInterface(set, 0, found)));
  machine.AddFault({.on = Fault::On::Output, .nth = 3, .action = Fault::Action::Fail, .code = 0});
  machine.AddFault({.on = Fault::On::Output, .nth = 4, .action = Fault::Action::Hold});
  machine.AddFault({.on = Fault::On::Output, .nth = 5, .action = Fault::Action::Unplug});
  const auto root = [&] {
    for (other = node; GetParent(other, other);) {
    }
    return GetParent(other, other);
  };
  const std::tuple<const char*, std::uint32_t, std::function<Status()>> rows[] = {
      {"a stall", EPIPE, send},
      {"a report of another length", EINVAL, [&] { return SetOutputReport(device, report, 320); }},
      {"no device", EBADF, [&] { return SetOutputReport(none, report, 321); }},
      {"no device", EBADF, [&] { return GetInputReport(none, report, 321); }},
      {"no device", EBADF, [&] { return GetIndexedString(none, 52, 512, wide); }},
      {"no property", ENOENT,
       [&] { return GetTextProperty(node, TextProperty::LocationPaths, 4096, wide); }},
      {"no property", ENOENT,
       [&] { return GetTextProperty(node, TextProperty::LocationInfo, 4096, wide); }},
      {"no property", ENOENT, [&] { return GetAddressProperty(node, address); }},
      {"no parent", ENOENT, root},
      {"no more nodes", ENOENT, [&] { return EnumNode(set, 99, other); }},
      {"no node", ENODEV, [&] { return GetDeviceIdW(0, 5, wide); }},
      {"a long id", ENOBUFS, [&] { return GetDeviceIdW(node, 5, wide); }},
      {"a long id", ENOBUFS, [&] { return GetDeviceIdA(node, 5, narrow); }},
      {"a long string", ENOBUFS, [&] { return GetIndexedString(device, 52, 20, wide); }},
      {"no string", EPIPE, [&] { return GetIndexedString(device, 53, 512, wide); }},
      {"no path", ENOENT, [&] { return OpenHidDevice(L"virtualhub:", second); }},
      {"no path", ENOENT, [&] { return OpenHidDevice(L"other" + path, second); }},
      {"no path", ENOENT, [&] { return OpenHidDevice(path + L"x", second); }},
      {"no path", ENOENT, [&] { return OpenHidDevice(path + L"0000000000", second); }},
      {"failure without a code", 0, send},
      {"held by another program", EBUSY,
       [&] {
         SetOutputReport(device, report, 321);
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
  SleepMs(1234);
  EXPECT_EQ(before + 1234, ClockMs());
  const LocalTime start = GetLocalTime();
  SleepMs(60'000);
  EXPECT_EQ((start.minute + 1) % 60, GetLocalTime().minute);
  EXPECT_EQ(machine.clock().VirtualCalendar().year, start.year);
  DebugOutput(L"gr\u00FC\u00DFe");
  EXPECT_EQ(std::vector<std::string>{"grüße"}, machine.recorder().DebugTexts());
}

TEST_F(VirtualBackendTest, EachOpenHandleIsCountedUnderItsKind) {
  using enum HandleKind;
  const auto counts = [&] {
    return std::array{machine.openHandles(HidDevice), machine.openHandles(HandleKind::Event),
                      machine.openHandles(HandleKind::NodeSet),
                      machine.openHandles(HandleKind::PreparsedData)};
  };
  {
    const auto device = Open();
    EXPECT_EQ((std::array{1, 0, 0, 0}), counts());
    platform::Event event;
    EXPECT_EQ(0, CodeOf(CreateReportEvent(event)));
    EXPECT_EQ((std::array{1, 1, 0, 0}), counts());
    platform::NodeSet set;
    EXPECT_EQ(0, CodeOf(OpenNodeSet(HidClassGuid(), set)));
    EXPECT_EQ((std::array{1, 1, 1, 0}), counts());
    platform::PreparsedData preparsed;
    EXPECT_EQ(0, CodeOf(GetPreparsedData(device, preparsed)));
    EXPECT_EQ((std::array{1, 1, 1, 1}), counts());
  }
  EXPECT_EQ((std::array{0, 0, 0, 0}), counts());
}

}  // namespace

}  // namespace qzhid::platform::test
