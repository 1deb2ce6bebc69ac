// Scenarios that are rejected, and the examples of the documentation.
#include "hub_bench.h"
#include "support/temp_file.h"

namespace virtualhub::test {

using qzhid::test::ReadText;
using ScenarioTest = HubBench;

/// Why a scenario is rejected; "accepted" when it is not.
static std::string Rejection(const std::string& json, const std::string& folder = {}) {
  try {
    ReadScenario(json, folder);
    return "accepted";
  } catch (const ScenarioError& error) {
    return error.what();
  }
}

TEST_F(ScenarioTest, ARejectionNamesPlaceAndReason) {
  using Cases = std::vector<std::pair<std::string, std::string>>;
  const std::tuple<std::string, std::string, Cases> groups[] = {
      // what comes before and after each member
      {"{",
       "}",
       {{"\n\"time\":\n", "parse error at line 3, column 1"},
        {R"("tiem": "real")", "/: unknown or unused key \"tiem\""},
        {R"("record": 9e999)", "number overflow"},
        {R"("devices": {})", "/devices: an array is needed"},
        {R"("instance_numbers": "random")", "/instance_numbers: \"random\" is not one of by_id"},
        {R"("hubs": [{"port": "1"}, {"port": "1"}])", "/hubs/1/port: two hubs are at this port"},
        {R"("hubs": [{"port": "1"}], "devices": [{"name": "a", "port": "1"}])",
         "/devices/0/port: a"}}},
      {R"({"devices": [{"name": "a", "port": "1"}, {"name": )",
       "}]}",
       {{R"("b", "port": "0.1")", "/devices/1/port: a port is written as"},
        {R"("b", "port": "2.1.1.1.1.1.1")", "/devices/1/port: a port is written as"},
        {R"("b", "port": "2.128")", "/devices/1/port: a port is written as"},
        {R"("b", "port": "9-1")", "/devices/1/port: a port is written as"},
        {R"("b", "port": "1")", "/devices/1/port: the device \"a\" is in the way"},
        {R"("b", "port": "1.2")", "/devices/1/port: the device \"a\" is in the way"},
        {R"("a", "port": "2")", "/devices/1/name: two devices"},
        {R"("b/", "port": "2")", "/devices/1/name: a name is made of"},
        {R"("b")", "/devices/1: \"port\" is missing"}}},
      {R"({"devices": [{"name": "a", "port": "1", )",
       "]}",
       {{R"("plugged": true}], "enumeration_order": ["b")", "/enumeration_order/0: there is no"},
        {R"("plugged": true}], "enumeration_order": ["a", "a")",
         "/enumeration_order/1: the device"},
        {R"("kind": "other", "image": null})", "/devices/0: unknown or unused key \"image\""},
        {R"("image": {"file": "/dev/null", "vid": 1}})",
         "/devices/0/image/file: the image file is"},
        {R"("image": {"version": "0x10000"}})", "/devices/0/image/version: 65536 is not between"},
        {R"("image": {"version": -1}})", "/devices/0/image/version: a non-negative"},
        {R"("image": {"file": "/nowhere/x.bin"}})", "/devices/0/image/file: the image file can"},
        {R"("image": {"file": "/"}})", "/devices/0/image/file: the image file is a folder"},
        {R"("image": {"file": "/dev/zero"}})", "/devices/0/image/file: the image file has more"},
        {R"("image": {"size": 131073}})", "/devices/0/image: the image is larger"},
        {R"("second_image": {}})", "/devices/0: \"second_image\" needs \"dual_bank\""},
        {R"("timing": 3})", "/devices/0/timing: an object is needed"},
        {R"("part": "MI_1"})", "/devices/0/part: a part is written as"},
        {R"("part": "MI_01&Col0g"})", "/devices/0/part: a part is written as"},
        {R"("part": "MI_01Col02"})", "/devices/0/part: a part is written as"},
        {R"("part": "Col01", "siblings": ["Col02", "Col01"]})", "/devices/0/siblings/1: two HID"},
        {R"("part": "MI_00", "siblings": ["Col01"]})", "/devices/0/siblings/0: only some parts"},
        {R"("siblings": ["Col02"]})", "/devices/0: \"siblings\" needs \"part\""},
        {R"("channels": [3]})", "/devices/0/channels/0: 3 is not between 1 and 2"},
        {R"("i2c": [{"kind": "block", "address": 1}, {"kind": "block", "address": 1}]})",
         "/devices/0/i2c/1: two I2C targets have this address"},
        {R"("i2c": [{"kind": "eeprom", "address": 1, "page_size": 100}]})",
         "/devices/0/i2c/0: \"page_size\" does not divide"}}},
      {R"({"devices": [{"name": "a", "port": "1"}], "faults": [{"on": )",
       "}]}",
       {{R"("reset", "action": "never_return", "device": "x")", "/faults/0/device: there is no"},
        {R"("input", "action": "unplug")", "/faults/0: \"return_ms\" is missing"},
        {R"("reset", "action": "return_at", "port": "x")", "/faults/0/port: not a port"},
        {R"("input", "action": "never_return")", "/faults/0: \"on\" and \"action\""},
        {R"("call", "service": "GetCaps", "action": "lose_write")", "/faults/0: \"on\" and"},
        {R"("input", "action": "hold")", "/faults/0: \"release_ms\" is missing"},
        {R"("input", "action": "stall", "code": 5)", "/faults/0: unknown or unused key \"code\""},
        {R"("input", "action": "stall", "nth": 0)", "/faults/0/nth: 0 is not between 1"},
        {R"("call", "action": "stall")", "/faults/0: \"service\" is missing"},
        {R"("call", "service": "Open", "action": "stall")", "/faults/0/service: there is no"},
        {R"("request", "action": "stall", "request": "40/C")", "/faults/0/request: a request"}}}};
  for (const auto& [open, close, cases] : groups) {
    for (const auto& [members, reason] : cases) {
      EXPECT_EQ(reason, Rejection(open + members + close).substr(0, reason.size())) << members;
    }
  }
}

TEST_F(ScenarioTest, EachServiceIsDocumentedAndAFaultOfItNamesADeviceIfItConcernsNone) {
  const std::string text = ReadText(QZ_SOURCE_DIR "/docs/virtual-hub.md");
  std::string withoutDevice;
  for (int i = 0; i <= static_cast<int>(Service::NativeArchitecture); ++i) {
    const std::string name(NameOf(static_cast<Service>(i)));
    EXPECT_EQ(static_cast<Service>(i), ServiceNamed(name));
    EXPECT_NE(std::string::npos, text.find('`' + name + '`')) << name;
    const std::string fault = R"("on": "call", "action": "hold", "release_ms": null, "service": ")";
    const std::string rejection = Rejection(R"({"faults": [{)" + fault + name + "\"}]}");
    if (rejection.starts_with("/faults/0: \"device\" is missing")) withoutDevice += name + " ";
  }
  EXPECT_EQ(
      "OpenNodeSet CloseNodeSet CreateReportEvent GetLibraryPath HostVersionStore "
      "HostProductName HostUpdateRevision NativeArchitecture ",
      withoutDevice);
}

TEST_F(ScenarioTest, ABadFileCostsOneLineAndAllDevices) {
  const qzhid::test::TempFile file({'['});
  for (const std::string name : {file.path(), "/nowhere/at/all.json", "/"}) {
    UninstallMachine();
    ASSERT_EQ(0, setenv(kScenarioVariable, name.c_str(), 1));
    ::testing::internal::CaptureStderr();
    EXPECT_THROW(CurrentMachine().HidInstance("hub"), std::out_of_range);
    const std::string errors = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ("virtualhub: " + name + ": ", errors.substr(0, name.size() + 14));
    EXPECT_EQ(errors.size() - 1, errors.find('\n'));
  }
  UninstallMachine();
  ASSERT_EQ(0, unsetenv(kScenarioVariable));
  EXPECT_NE(0u, CurrentMachine().HidInstance("hub")) << "without a file: the default machine";
}

TEST_F(ScenarioTest, EveryExampleOfTheDocumentationIsAccepted) {
  const std::string text = ReadText(QZ_SOURCE_DIR "/docs/virtual-hub.md"), open = "```json\n";
  int examples = 0;
  // The capture that an example replays.
  const qzhid::test::ScratchFolder folder;
  Install(R"({"capture": ")" + folder.At("dock.pcapng") +
          R"(", "devices": [{"name": "hub", "port": "1"}]})");
  Send(Hex(kEnable1));
  for (std::size_t at = 0; (at = text.find(open, at)) != std::string::npos; ++examples) {
    at += open.size();
    EXPECT_EQ("accepted", Rejection(text.substr(at, text.find("```", at) - at), folder.path));
  }
  EXPECT_GE(examples, 10);
}

}  // namespace virtualhub::test
