// Scenarios that are refused, the examples of the documentation, and the image tool.
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "hub_bench.h"
#include "virtualhub/hub/image.h"

namespace virtualhub::test {

namespace {

using ScenarioTest = HubBench;

std::string ReadText(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

TEST_F(ScenarioTest, RefusalsNamePlaceAndReason) {
  using Cases = std::vector<std::pair<std::string, std::string>>;
  const std::tuple<std::string, std::string, Cases> groups[] = {
      // before, behind, each member
      {"{",
       "}",
       {{"\n\"time\":\n", "parse error at line 3, column 1"},
        {R"("tiem": "real")", "/: unknown or unused key \"tiem\""},
        {R"("record": 9e999)", "number overflow"},
        {R"("instance_numbers": "random")", "/instance_numbers: \"random\" is not one of by_id"},
        {R"("time": "slow")", "/time: \"slow\" is not one of virtual, real"}}},
      {R"({"devices": [{"name": "a", "port": "1")",
       "]}",
       {{R"(}, {"name": "b", "port": "0.1"})", "/devices/1/port: "},
        {R"(}, {"name": "b", "port": "2.1.1.1.1.1.1"})", "/devices/1/port: "},
        {R"(}, {"port": "2"})", "/devices/1: \"name\" is missing"},
        {R"(}, {"name": "a", "port": "2"})", "/devices/1/name: two devices"},
        {R"(}, {"name": "b", "port": "1.2"})", "/devices/1/port: the device \"a\" is in the way"},
        {R"(, "kind": "other", "image": null})", "/devices/0: unknown or unused key \"image\""},
        {R"(}], "enumeration_order": ["b")", "/enumeration_order/0: there is no device \"b\""},
        {R"(, "image": {"version": "0x10000"}})", "/devices/0/image/version: 65536 is not"},
        {R"(, "image": {"version": -1}})", "/devices/0/image/version: a non-negative"},
        {R"(, "image": {"file": "/nowhere/x.bin"}})", "/devices/0/image/file: "},
        {R"(, "image": {"file": "/"}})", "/devices/0/image/file: "},
        {R"(, "image": {"file": "/dev/zero"}})", "/devices/0/image/file: "},
        {R"(, "image": {"size": 131073}})", "/devices/0/image: the image is larger"},
        {R"(, "kind": "other", "channels": [1]})",
         "/devices/0: unknown or unused key \"channels\""},
        {R"(, "timing": {"erase_s": 1}})", "/devices/0/timing: unknown or unused key \"erase_s\""},
        {R"(, "timing": 3})", "/devices/0/timing: an object is needed"},
        {R"(, "image": {"file": ")" QZ_SOURCE_DIR R"(/README.md", "vid": 1}})",
         "/devices/0/image: unknown or unused key \"vid\""},
        {R"(, "timing": {"erase_ms": true}})", "/devices/0/timing/erase_ms: "},
        {R"(, "part": "MI_1"})", "/devices/0/part: a part is written as"},
        {R"(, "part": "MI_01&Col0g"})", "/devices/0/part: a part is written as"},
        {R"(, "part": "MI_01Col02"})", "/devices/0/part: a part is written as"},
        {R"(, "part": "Col01", "siblings": ["Col02", "Col01"]})",
         "/devices/0/siblings/1: two HID nodes"},
        {R"(, "part": "MI_00", "siblings": ["Col01"]})", "/devices/0/siblings/0: only some parts"},
        {R"(, "siblings": ["Col02"]})", "/devices/0: \"siblings\" needs \"part\""},
        {R"(, "hid": {"address": "none"}})", "/devices/0/hid/address: "},
        {R"(, "out_endpoint": "some"})", "/devices/0/out_endpoint: "},
        {R"(, "channels": [3]})", "/devices/0/channels/0: 3 is not between 1 and 2"},
        {R"(, "i2c": [{"kind": "eeprom", "address": 1, "page_size": 100}]})",
         "/devices/0/i2c/0: \"page_size\" does not divide"}}},
      {R"({"devices": [{"name": "a", "port": "1"}], "faults": [{"on": )",
       "}]}",
       {{R"("input", "action": "unplug", "return_ms": 1, "device": "x")",
         "/faults/0/device: there is no device \"x\""},
        {R"("input", "action": "unplug")", "/faults/0: \"return_ms\" is missing"},
        {R"("input", "action": "never_return")", "/faults/0: \"on\" and \"action\""},
        {R"("input", "action": "hold")", "/faults/0: \"release_ms\" is missing"},
        {R"("call", "service": "OpenNodeSet", "action": "hold", "release_ms": null)",
         "/faults/0: \"device\" is missing"},
        {R"("input", "action": "stall", "code": 5)", "/faults/0: unknown or unused key \"code\""},
        {R"("input", "action": "stall", "request": "40/C8")",
         "/faults/0: unknown or unused key \"request\""},
        {R"("call", "action": "stall")", "/faults/0: \"service\" is missing"},
        {R"("request", "action": "stall")", "/faults/0: \"request\" is missing"},
        {R"("call", "service": "Open", "action": "stall")",
         "/faults/0/service: there is no service \"Open\""}}}};
  for (const auto& [open, close, cases] : groups) {
    for (const auto& [members, reason] : cases) {
      std::string refusal = "accepted";
      try {
        ReadScenario(open + members + close);
      } catch (const ScenarioError& error) {
        refusal = error.what();
      }
      EXPECT_EQ(reason, refusal.substr(0, reason.size())) << members << '\n' << refusal;
    }
  }
}

TEST_F(ScenarioTest, BadFileCostsOneLineAndAllDevices) {
  const std::string file = ::testing::TempDir() + "bad.json";
  std::ofstream(file) << R"({"devices": 3})";
  for (const std::string& name : {file, std::string("/nowhere/at/all.json"), std::string("/")}) {
    UninstallMachine();
    ASSERT_EQ(0, setenv("QZ_VIRTUAL_HUB", name.c_str(), 1));
    ::testing::internal::CaptureStderr();
    EXPECT_THROW(CurrentMachine().HidInstance("hub"), std::out_of_range);
    const std::string errors = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(0u, errors.find("virtualhub: " + name + ": ")) << errors;
    EXPECT_EQ(1, std::count(errors.begin(), errors.end(), '\n'));
  }
  UninstallMachine();
  ASSERT_EQ(0, unsetenv("QZ_VIRTUAL_HUB"));
  EXPECT_NE(0u, CurrentMachine().HidInstance("hub")) << "without a file: the default machine";
}

TEST_F(ScenarioTest, EveryExampleOfTheDocumentationLoads) {
  const std::string text = ReadText(QZ_SOURCE_DIR "/docs/virtual-hub.md"), open = "```json\n";
  int blocks = 0;
  for (std::size_t at = text.find(open); at != std::string::npos; at = text.find(open, at)) {
    at += open.size();
    std::string json = text.substr(at, text.find("```", at) - at);
    const std::size_t state = json.find("\"state\"");
    if (state != std::string::npos) json.insert(state + 1, ::testing::TempDir());
    EXPECT_NO_THROW(Install(json)) << json;
    ++blocks;
  }
  EXPECT_GE(blocks, 10);
}

TEST(ServiceTest, EachHasANameThatAScenarioMayUseAndTheDocumentationLists) {
  const std::string text = ReadText(QZ_SOURCE_DIR "/docs/virtual-hub.md");
  for (int i = 0; i <= static_cast<int>(Service::NativeArchitecture); ++i) {
    const auto service = static_cast<Service>(i);
    const std::string name(NameOf(service));
    EXPECT_EQ(service, ServiceNamed(name)) << name;
    EXPECT_NE(std::string::npos, text.find('`' + name + '`')) << name;
  }
  EXPECT_EQ(std::nullopt, ServiceNamed("OpenNode"));
}

TEST(ImageTest, FieldsAreWhereTheChipHasThem) {
  for (const auto& [chip, offset] : std::vector<std::pair<std::uint16_t, std::size_t>>{
           {0x4A17, 0x7F52}, {0x4A26, 0x7F6E}, {0x93E5, 0x7FA6}, {0x1234, 0x7F5E}}) {
    const Bytes image = BuildImage({0xA1B2, 0xC3D4, chip, 0xE5F6}, 0x8000);
    EXPECT_EQ(0xE5F6, BigEndian16(image, offset));
    EXPECT_EQ(0xA1B2, BigEndian16(image, 0x7F12));
    EXPECT_EQ(0xC3D4, BigEndian16(image, 0x7F16));
    EXPECT_EQ(chip, BigEndian16(image, 0x7EFB));
  }
}

TEST(ImageTest, ToolWritesWholeFilesOnly) {
  const std::filesystem::path folder = ::testing::TempDir() + "qzhub-image";
  std::filesystem::remove_all(folder);
  std::filesystem::create_directory(folder);
  const std::string file = (folder / "a.bin").string();
  const std::pair<std::string, int> runs[] = {
      {"image --size 40000 --vid 1a2b --pid 0x3C4D --chip 4A26 --version 310 --out " + file, 0},
      {"--help", 0},
      {"--version", 0},
      {"", 2},
      {"image", 2},
      {"image --out x --vid 12345", 2},
      {"image --out x --size 32679", 2},
      {"image --out x --version 1.02", 2},
      {"mirror", 2},
      {"image --out /nowhere/at/all.bin", 1},
      {"image --out " + folder.string(), 1}};  // a folder is in the way
  for (const auto& [arguments, code] : runs) {
    const int status = std::system((QZHUB_TOOL " " + arguments + " >/dev/null 2>&1").c_str());
    EXPECT_EQ(code, WEXITSTATUS(status)) << arguments;
  }
  const auto files = std::filesystem::directory_iterator(folder);
  EXPECT_EQ(1, std::distance(begin(files), end(files))) << "nothing half-written is left";
  const std::string text = ReadText(file);
  EXPECT_EQ(BuildImage({0x1A2B, 0x3C4D, 0x4A26, 0x0310}, 40000), Bytes(text.begin(), text.end()));
}

}  // namespace

}  // namespace virtualhub::test
