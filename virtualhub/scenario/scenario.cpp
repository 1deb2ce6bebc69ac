#include "virtualhub/scenario/scenario.h"

#include <algorithm>
#include <set>

#include "virtualhub/base/files.h"
#include "virtualhub/capture/captured_hub.h"
#include "virtualhub/hub/image.h"
#include "virtualhub/scenario/json_reader.h"
#include "virtualhub/scenario/scenario_fault.h"
#include "virtualhub/scenario/scenario_hub.h"

namespace virtualhub {

namespace {

constexpr const char* kDefaultProduct = "WQ HID Hub";
constexpr std::size_t kLongestFile = 0x1000000;  // bytes

PortPath ReadPort(const JsonReader& in) {
  const auto port = PortPath::Parse(in.Text());
  if (!port) in.Fail("a port is written as \"3.1\", or \"2-3.1\" below the second root hub");
  return *port;
}

// Whether a property has a value; null takes it away.
bool HasValue(const JsonReader& in, const char* key, bool& isAbsent) {
  isAbsent = in.Has(key) && in.Member(key).IsNull();
  return in.Has(key) && !isAbsent;
}

NodeOverrides ReadNode(const JsonReader& in) {
  NodeOverrides node;
  if (in.Has("device_id")) node.deviceId = in.Member("device_id").Text();
  if (in.Has("hardware_ids")) node.hardwareIds = in.Member("hardware_ids").Texts();
  if (HasValue(in, "location_info", node.noLocationInfo)) {
    node.locationInfo = in.Member("location_info").Text();
  }
  if (HasValue(in, "location_paths", node.noLocationPaths)) {
    node.locationPaths = in.Member("location_paths").Texts();
  }
  if (HasValue(in, "address", node.noAddress)) {
    node.address = static_cast<std::uint32_t>(in.Member("address").Number(0, 0xFFFFFFFF));
  }
  in.Flag("no_parent", node.noParent);
  return node;
}

void ReadHubNode(const JsonReader& in, Scenario& scenario) {
  const JsonReader port = in.Member("port");
  if (!scenario.hubs.emplace(ReadPort(port), ReadNode(in)).second) {
    port.Fail("two hubs are at this port");
  }
}

std::optional<std::string> ReadNullable(const JsonReader& in) {
  return in.IsNull() ? std::nullopt : std::optional(in.Text());
}

HostConfig ReadHost(const JsonReader& in) {
  HostConfig host;
  in.Flag("version_store", host.hasVersionStore);
  if (in.Has("product_name")) host.productName = ReadNullable(in.Member("product_name"));
  in.Number("major", host.major);
  in.Number("minor", host.minor);
  in.Number("build", host.build);
  if (in.Has("update_revision")) {
    const JsonReader revision = in.Member("update_revision");
    host.updateRevision.reset();
    if (!revision.IsNull()) {
      host.updateRevision = static_cast<std::uint32_t>(revision.Number(0, 0xFFFFFFFF));
    }
  }
  in.Choice<HostArchitecture>("architecture", host.architecture,
                              {{"build", HostArchitecture::OfTheBuild},
                               {"unknown", HostArchitecture::Unknown},
                               {"x86", HostArchitecture::X86},
                               {"x64", HostArchitecture::X64},
                               {"arm64", HostArchitecture::Arm64}});
  return host;
}

std::string ReadName(const JsonReader& in) {
  std::string name = in.Text();
  const bool plain = std::all_of(name.begin(), name.end(), [](unsigned char letter) {
    return letter == '_' || letter == '-' || (letter >= '0' && letter <= '9') ||
           (letter >= 'A' && letter <= 'Z') || (letter >= 'a' && letter <= 'z');
  });
  if (name.empty() || !plain) in.Fail("a name is made of letters, digits, '_' and '-'");
  return name;
}

std::vector<UsbAddress> ReadAddresses(const JsonReader& in) {
  std::vector<UsbAddress> addresses;
  for (const JsonReader& item : in.Items()) {
    const auto address = ParseUsbAddress(item.Text());
    if (!address) item.Fail("an address is written as \"1.7\": the bus and the device");
    addresses.push_back(*address);
  }
  return addresses;
}

std::shared_ptr<const CapturedHub> ReadReplay(const JsonReader& in,
                                              const std::filesystem::path& folder) {
  const JsonReader file = in.Member("capture");
  const std::string name = file.Text();
  CapturedPart part;
  if (in.Has("addresses")) part.addresses = ReadAddresses(in.Member("addresses"));
  in.Number("first_frame", part.firstFrame);
  const auto text = in.Has("product_text") ? ReadNullable(in.Member("product_text"))
                                           : std::optional<std::string>(kDefaultProduct);
  try {
    auto hub = std::make_shared<CapturedHub>(ReadCapturedHub(folder / name, part));
    for (CapturedStay& stay : hub->stays) {
      if (in.Has("product_text") || !stay.productText) stay.productText = text;
    }
    return hub;
  } catch (const std::runtime_error& error) {  // a FileError or CaptureError
    file.Fail(name + " " + error.what());
  }
}

void ReadKind(const JsonReader& in, ScenarioImages& images, DeviceConfig& device) {
  enum class Kind { Hub, Other, Replay } kind = Kind::Hub;
  in.Choice<Kind>("kind", kind,
                  {{"hub", Kind::Hub}, {"other", Kind::Other}, {"replay", Kind::Replay}});
  if (kind == Kind::Hub) {
    device.productText = kDefaultProduct;
    device.hub = ReadHub(in, images);
  } else if (kind == Kind::Replay) {
    device.replay = ReadReplay(in, images.folder());
  } else {
    in.Number("vid", device.ids.vid);
    in.Number("pid", device.ids.pid);
    device.reports = ReadReports(in);
  }
}

// Takes a mark and a number of two digits off the front of the text.
bool TakeNumbered(std::string_view& text, std::string_view mark) {
  const std::string_view digits = text.substr(std::min(mark.size(), text.size())).substr(0, 2);
  if (!text.starts_with(mark) || digits.size() != 2 ||
      digits.find_first_not_of("0123456789ABCDEF") != digits.npos) {
    return false;
  }
  text.remove_prefix(mark.size() + 2);
  return true;
}

bool IsPart(std::string_view text) {
  if (TakeNumbered(text, "MI_")) {
    if (text.empty()) return true;
    if (text.front() != '&') return false;
    text.remove_prefix(1);
  }
  return TakeNumbered(text, "Col") && text.empty();
}

// Two HID nodes of a device have different names, and all or none are of an interface.
void ReadParts(const JsonReader& in, DeviceNodes& nodes) {
  if (!in.Has("part")) {
    if (in.Has("siblings")) in.Fail("\"siblings\" needs \"part\"");
    return;
  }
  std::set<std::string> seen;
  const auto read = [&](const JsonReader& item) {
    std::string text = item.Text();
    if (!IsPart(text)) item.Fail("a part is written as \"MI_01\", \"Col02\" or \"MI_01&Col02\"");
    if (!seen.insert(text).second) item.Fail("two HID nodes have this name");
    if (!nodes.part.empty() && text[0] != nodes.part[0]) {
      item.Fail("only some parts are of an interface");
    }
    return text;
  };
  nodes.part = read(in.Member("part"));
  if (!in.Has("siblings")) return;
  for (const JsonReader& item : in.Member("siblings").Items()) nodes.siblings.push_back(read(item));
}

DeviceConfig ReadDevice(const JsonReader& in, ScenarioImages& images) {
  DeviceConfig device;
  ReadKind(in, images, device);
  device.name = ReadName(in.Member("name"));
  device.port = ReadPort(in.Member("port"));
  in.Flag("plugged", device.plugged);
  if (in.Has("product_text")) device.productText = ReadNullable(in.Member("product_text"));
  if (in.Has("usb")) device.usb = ReadNode(in.Member("usb"));
  if (in.Has("hid")) device.hid = ReadNode(in.Member("hid"));
  ReadParts(in, device);
  return device;
}

void ReadDevices(const JsonReader& in, const std::filesystem::path& folder, Scenario& scenario) {
  ScenarioImages images(folder);
  for (const JsonReader& item : in.Items()) {
    const DeviceConfig device = ReadDevice(item, images);
    for (const DeviceConfig& other : scenario.devices) {
      if (other.name == device.name) item.Member("name").Fail("two devices have this name");
      if (device.plugged && other.plugged && other.port.IsInTheWayOf(device.port)) {
        item.Member("port").Fail("the device \"" + other.name + "\" is in the way");
      }
    }
    if (scenario.hubs.contains(device.port)) item.Member("port").Fail("a hub is at this port");
    scenario.devices.push_back(device);
  }
}

void RequireDevice(const JsonReader& in, const Scenario& scenario, const std::string& name) {
  const bool known = std::any_of(scenario.devices.begin(), scenario.devices.end(),
                                 [&](const DeviceConfig& device) { return device.name == name; });
  if (!known) in.Fail("there is no device \"" + name + "\"");
}

void ReadOrder(const JsonReader& in, Scenario& scenario) {
  std::set<std::string> seen;
  for (const JsonReader& item : in.Items()) {
    RequireDevice(item, scenario, item.Text());
    if (!seen.insert(item.Text()).second) item.Fail("the device is named twice");
    scenario.enumerationOrder.push_back(item.Text());
  }
}

Scenario ReadRoot(const JsonReader& in, const std::filesystem::path& folder) {
  Scenario scenario;
  if (in.Has("time")) {
    in.Choice<std::optional<Clock::Mode>>(
        "time", scenario.time, {{"virtual", Clock::Mode::Virtual}, {"real", Clock::Mode::Real}});
  }
  if (in.Has("host")) scenario.host = ReadHost(in.Member("host"));
  in.Choice<std::optional<InstanceNumbers>>(
      "instance_numbers", scenario.instanceNumbers,
      {{"by_id", InstanceNumbers::ById}, {"by_arrival", InstanceNumbers::ByArrival}});
  if (in.Has("root_hubs")) {
    for (const JsonReader& item : in.Member("root_hubs").Items()) {
      scenario.rootHubs.push_back(ReadNode(item));
    }
  }
  if (in.Has("hubs")) {
    for (const JsonReader& item : in.Member("hubs").Items()) ReadHubNode(item, scenario);
  }
  if (in.Has("devices")) ReadDevices(in.Member("devices"), folder, scenario);
  if (in.Has("enumeration_order")) ReadOrder(in.Member("enumeration_order"), scenario);
  if (in.Has("faults")) {
    for (const JsonReader& item : in.Member("faults").Items()) {
      scenario.faults.push_back(ReadFault(item));
      const std::string& device = scenario.faults.back().device;
      if (!device.empty()) RequireDevice(item.Member("device"), scenario, device);
    }
  }
  in.Flag("record", scenario.record);
  if (in.Has("control")) scenario.controlFile = folder / in.Member("control").Text();
  if (in.Has("capture")) scenario.captureFile = folder / in.Member("capture").Text();
  if (in.Has("state_folder")) scenario.stateFolder = folder / in.Member("state_folder").Text();
  return scenario;
}

}  // namespace

Scenario ReadScenario(const std::string& text, const std::filesystem::path& folder) {
  const JsonValue root = ParseJson(text);
  const JsonReader in(root);
  Scenario scenario = ReadRoot(in, folder);
  in.RejectUnread();
  return scenario;
}

Scenario ReadScenarioFile(const std::filesystem::path& file) {
  Bytes text;
  try {
    text = ReadWholeFile(file, kLongestFile);
  } catch (const FileError& error) {
    throw ScenarioError(std::string("the file ") + error.what());
  }
  return ReadScenario({text.begin(), text.end()}, file.parent_path());
}

Scenario DefaultScenario() {
  return ReadScenario(R"({"devices": [
    {"name": "hub", "port": "3.1", "i2c": [{"kind": "eeprom", "address": "0x50"}]},
    {"name": "keyboard", "kind": "other", "port": "5", "vid": "0x045E", "pid": "0x0750",
     "output_report_length": 2, "input_report_length": 9}]})");
}

}  // namespace virtualhub
