// Scenarios that are refused, the examples of the documentation, and the image tool.
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "hub_bench.h"
#include "virtualhub/crc32.h"
#include "virtualhub/image.h"

namespace virtualhub::test {

namespace {

using ScenarioTest = HubBench;

std::string ReadText(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string Refusal(const std::string& json) {
  try {
    ReadScenario(json);
  } catch (const ScenarioError& error) {
    return error.what();
  }
  return "accepted";
}

// A scenario of one hub with more members.
std::string WithMember(const std::string& member) {
  return R"({"devices": [{"name": "hub", "port": "3.1", )" + member + "}]}";
}
std::string WithFault(const std::string& fault) {
  return R"({"devices": [{"name": "hub", "port": "3.1"}], "faults": [{)" + fault + "}]}";
}

TEST_F(ScenarioTest, RefusalsNamePlaceAndReason) {
  const std::pair<std::string, std::string> cases[] = {
      {"{\n  \"time\": \n}", "line 3, column 1"},
      {"[]", "/: an object is needed"},
      {R"({"tiem": "real"})", "/: unknown key \"tiem\""},
      {R"({"time": "slow"})", "/time: \"slow\" is none of virtual, real"},
      {R"({"devices": [{"port": "1"}]})", "/devices/0: \"name\" is missing"},
      {R"({"devices": [{"name": "a b", "port": "1"}]})", "/devices/0/name: "},
      {R"({"devices": [{"name": "a", "port": "0.1"}]})", "/devices/0/port: "},
      {R"({"devices": [{"name": "a", "port": "1."}]})", "/devices/0/port: "},
      {R"({"devices": [{"name": "a", "port": "1"}, {"name": "a", "port": "2"}]})",
       "/devices/1/name: two devices"},
      {R"({"devices": [{"name": "a", "port": "1"}, {"name": "b", "port": "1.2"}]})",
       "/devices/1/port: the device \"a\" is in the way"},
      {R"({"hubs": [{"port": "1"}], "devices": [{"name": "a", "port": "1"}]})",
       "/devices/0/port: a hub"},
      {R"({"devices": [{"name": "a", "port": "1"}], "enumeration_order": ["b"]})",
       "/enumeration_order/0: there is no device \"b\""},
      {R"({"devices": [{"name": "a", "port": "1", "kind": "other", "image": null}]})",
       "/devices/0: unknown key \"image\""},
      {WithMember(R"("image": {"version": "0x10000"})"), "/devices/0/image/version: 65536 is not"},
      {WithMember(R"("image": {"version": "12"})"), "/devices/0/image/version: a non-negative"},
      {WithMember(R"("image": {"version": -1})"), "/devices/0/image/version: a non-negative"},
      {WithMember(R"("image": {"file": "/nowhere/x.bin"})"), "/devices/0/image/file: "},
      {WithMember(R"("image": {"size": 131073})"), "/devices/0/image: the image is larger"},
      {WithMember(R"("second_image": null)"), "/devices/0: \"second_image\" needs"},
      {WithMember(R"("timing": {"erase_ms": true})"), "/devices/0/timing/erase_ms: "},
      {WithMember(R"("channels": [3])"), "/devices/0/channels/0: 3 is not between 1 and 2"},
      {WithMember(R"("gpio_high": [24])"), "/devices/0/gpio_high/0: "},
      {WithMember(R"("i2c": [{"kind": "eeprom", "address": 1, "size": 100, "page_size": 64}])"),
       "/devices/0/i2c/0: \"page_size\" does not divide"},
      {WithMember(R"("i2c": [{"kind": "rom", "address": 1}])"), "/devices/0/i2c/0/kind: "},
      {WithFault(R"("on": "input", "action": "unplug", "return_ms": 1, "device": "x")"),
       "/faults/0/device: there is no device \"x\""},
      {WithFault(R"("on": "input", "action": "unplug")"), "/faults/0: \"return_ms\" is missing"},
      {WithFault(R"("on": "input", "action": "fail")"), "/faults/0: \"code\" is missing"},
      {WithFault(R"("on": "input", "action": "never_return")"), "/faults/0: \"on\" and \"action\""},
      {WithFault(R"("on": "request", "action": "stall")"), "/faults/0: \"request\" goes with"},
      {WithFault(R"("on": "request", "request": "4/C8", "action": "stall")"),
       "/faults/0/request: "},
      {WithFault(R"("on": "call", "service": "Open", "action": "stall")"), "/faults/0/service: "},
      {WithFault(R"("on": "call", "service": "GetCaps", "action": "lose_write")"),
       "/faults/0: \"on\" and \"action\""},
      {WithFault(R"("on": "call", "service": "OpenNodeSet", "action": "unplug", "return_ms": 1)"),
       "/faults/0: \"device\" is missing"}};
  for (const auto& [json, reason] : cases) {
    EXPECT_NE(std::string::npos, Refusal(json).find(reason)) << json << '\n' << Refusal(json);
  }
}

TEST_F(ScenarioTest, BadFileCostsOneLineAndAllDevices) {
  const std::string file = ::testing::TempDir() + "bad.json";
  std::ofstream(file) << R"({"devices": 3})";
  for (const std::string& name : {file, std::string("/nowhere/at/all.json")}) {
    UninstallWorld();
    ASSERT_EQ(0, setenv("QZ_VIRTUAL_HUB", name.c_str(), 1));
    ::testing::internal::CaptureStderr();
    EXPECT_THROW(CurrentWorld().HidInstance("hub"), std::out_of_range);
    const std::string errors = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(0u, errors.find("virtualhub: " + name + ": ")) << errors;
    EXPECT_EQ(1, std::count(errors.begin(), errors.end(), '\n'));
  }
  UninstallWorld();
  ASSERT_EQ(0, unsetenv("QZ_VIRTUAL_HUB"));
  EXPECT_NE(0u, CurrentWorld().HidInstance("hub")) << "without a file: the default machine";
  EXPECT_EQ(Clock::Mode::Real, CurrentWorld().clock().mode());
}

TEST_F(ScenarioTest, EveryExampleOfTheDocumentationLoads) {
  const std::string text = ReadText(std::string(QZ_SOURCE_DIR) + "/docs/virtual-hub.md");
  const std::string open = "```json\n";
  int blocks = 0;
  for (std::size_t at = text.find(open); at != std::string::npos; at = text.find(open, at + 1)) {
    const std::size_t first = at + open.size();
    std::string json = text.substr(first, text.find("```", first) - first);
    const std::size_t state = json.find("\"state\"");
    if (state != std::string::npos) json.insert(state + 1, ::testing::TempDir());
    EXPECT_NO_THROW(Install(json)) << json;
    ++blocks;
  }
  EXPECT_GE(blocks, 10);
}

TEST(ImageTest, FieldsAndSeal) {
  const std::uint8_t digits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
  EXPECT_EQ(0xCBF43926u, Crc32(digits)) << "the check value of this CRC";
  const std::pair<int, std::size_t> chips[] = {
      {0x4A17, 0x7F52}, {0x4A26, 0x7F6E}, {0x93E5, 0x7FA6}, {0x1234, 0x7F5E}};
  for (const auto& [chip, offset] : chips) {
    const ImageIdentity identity{0xA1B2, 0xC3D4, static_cast<std::uint16_t>(chip), 0xE5F6};
    Bytes image = BuildImage(identity, 0x8000);
    EXPECT_EQ((Bytes{0xE5, 0xF6}), Bytes(&image[offset], &image[offset] + 2));
    EXPECT_EQ((Bytes{0xA1, 0xB2}), Bytes(&image[0x7F12], &image[0x7F14]));
    EXPECT_EQ((Bytes{0xC3, 0xD4}), Bytes(&image[0x7F16], &image[0x7F18]));
    EXPECT_EQ(chip, BigEndian16(image, 0x7EFB));
    EXPECT_EQ(identity, ReadIdentity(image));
    EXPECT_EQ(Seal::Intact, CheckSeal(image));
    image.push_back(0xFF);
    EXPECT_EQ(Seal::Intact, CheckSeal(image)) << "erased flash behind it does not matter";
    image[0x7FFF] ^= 1;
    EXPECT_EQ(Seal::Broken, CheckSeal(image));
  }
  EXPECT_THROW(BuildImage({}, 0x7FA7), std::invalid_argument);
}

int RunTool(const std::string& arguments) {
  const int status = std::system((QZHUB_TOOL " " + arguments + " >/dev/null 2>&1").c_str());
  return WEXITSTATUS(status);
}

TEST(ImageTest, ToolWritesWholeFilesOnly) {
  const std::filesystem::path folder = ::testing::TempDir() + "qzhub-image";
  std::filesystem::remove_all(folder);
  std::filesystem::create_directory(folder);
  const std::string file = (folder / "a.bin").string();
  ASSERT_EQ(0, RunTool("image --out " + file +
                       " --size 40000 --vid 1a2b --pid 0x3C4D --chip 4A26 --version 310"));
  const std::string text = ReadText(file);
  EXPECT_EQ(BuildImage({0x1A2B, 0x3C4D, 0x4A26, 0x0310}, 40000), Bytes(text.begin(), text.end()));
  EXPECT_EQ(0, RunTool("--help"));
  EXPECT_EQ(0, RunTool("--version"));
  for (const char* wrong : {"", "image", "image --out x --vid 12345", "image --out x --size 32679",
                            "image --out x --version 1.02", "mirror"}) {
    EXPECT_EQ(2, RunTool(wrong)) << wrong;
  }
  EXPECT_EQ(1, RunTool("image --out /nowhere/at/all.bin"));
  EXPECT_EQ(1, RunTool("image --out " + folder.string())) << "a folder is in the way";
  const auto files = std::filesystem::directory_iterator(folder);
  EXPECT_EQ(1, std::distance(begin(files), end(files))) << "nothing half-written is left";
  EXPECT_EQ(text, ReadText(file));
}

}  // namespace

}  // namespace virtualhub::test
