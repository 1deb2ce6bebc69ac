#include "virtualhub/scenario/scenario_hub.h"

#include "virtualhub/base/files.h"

namespace virtualhub {

namespace {

constexpr std::size_t kDefaultImageSize = 0x10000;
constexpr std::size_t kLargestMemory = 0x1000000;

Bytes LoadImageFile(const JsonReader& in, const std::filesystem::path& path) {
  try {
    Bytes image = ReadWholeFile(path, kLargestMemory);
    if (!image.empty()) return image;
  } catch (const FileError& error) {
    in.Fail(std::string("the image file ") + error.what());
  }
  in.Fail("the image file is empty");
}

SharedBytes GenerateImage(const JsonReader& in, ScenarioImages& images) {
  ImageIdentity identity;
  std::size_t size = kDefaultImageSize;
  in.Number("vid", identity.vid);
  in.Number("pid", identity.pid);
  in.Number("chip", identity.chip);
  in.Number("version", identity.version);
  in.Number("size", size, kIdentityEnd, kLargestMemory);
  return images.Build(identity, size);
}

BankConfig ReadBank(const JsonReader& in, ScenarioImages& images, std::size_t bankSize) {
  BankConfig bank;
  if (in.IsNull()) return bank;
  if (in.Has("file")) {
    bank.image = images.Load(in.Member("file"));
  } else {
    bank.image = GenerateImage(in, images);
  }
  if (bank.image->size() > bankSize) in.Fail("the image is larger than the flash bank");
  if (in.Has("cut_after")) {
    bank.cutAfter = in.Member("cut_after").Number(1, bank.image->size());
  }
  return bank;
}

RomIdentity ReadRom(const JsonReader& in) {
  RomIdentity rom;
  in.Number("vid", rom.vid);
  in.Number("pid", rom.pid);
  in.Number("version", rom.version);
  return rom;
}

HubTiming ReadTiming(const JsonReader& in) {
  HubTiming timing;
  in.Number("latency_us", timing.latencyUs);
  in.Number("erase_ms", timing.eraseMs);
  in.Number("leave_ms", timing.leaveMs);
  in.Number("return_ms", timing.returnMs);
  in.Number("ready_ms", timing.readyMs);
  return timing;
}

EepromConfig ReadEeprom(const JsonReader& in) {
  EepromConfig eeprom;
  in.Number("size", eeprom.size, 1, kLargestMemory);
  in.Number("page_size", eeprom.pageSize, 1, eeprom.size);
  if (eeprom.size % eeprom.pageSize != 0) in.Fail("\"page_size\" does not divide \"size\"");
  in.Number("address_bytes", eeprom.addressBytes, 1, 5);
  return eeprom;
}

BlockTargetConfig ReadBlockTarget(const JsonReader& in) {
  BlockTargetConfig target;
  in.Number("size", target.size, 1, kLargestMemory);
  in.Number("busy_polls", target.busyPolls);
  in.Number("final_status", target.finalStatus, 1, 3);
  return target;
}

void ReadI2cTarget(const JsonReader& in, HubConfig& hub) {
  enum class Kind { Eeprom, Block } kind{};
  const auto slave = static_cast<std::uint8_t>(in.Member("address").Number(0, 0xFF));
  in.Member("kind");
  in.Choice<Kind>("kind", kind, {{"eeprom", Kind::Eeprom}, {"block", Kind::Block}});
  if (hub.i2cTargets.contains(slave)) in.Fail("two I2C targets have this address");
  if (kind == Kind::Eeprom) {
    hub.i2cTargets[slave] = ReadEeprom(in);
  } else {
    hub.i2cTargets[slave] = ReadBlockTarget(in);
  }
}

BridgeFlashConfig ReadBridgeFlash(const JsonReader& in) {
  BridgeFlashConfig bridge;
  in.Number("size", bridge.size, 1, kLargestMemory);
  in.Number("busy_polls", bridge.busyPolls);
  return bridge;
}

void ReadBanks(const JsonReader& in, ScenarioImages& images, HubConfig& hub) {
  in.Number("bank_size", hub.bankSize, kDefaultImageSize, kLargestMemory);
  in.Flag("dual_bank", hub.dualBank);
  if (in.Has("image")) {
    hub.image = ReadBank(in.Member("image"), images, hub.bankSize);
  } else {
    hub.image.image = images.Build({}, kDefaultImageSize);
  }
  if (!in.Has("second_image")) return;
  if (!hub.dualBank) in.Fail("\"second_image\" needs \"dual_bank\"");
  hub.secondImage = ReadBank(in.Member("second_image"), images, hub.bankSize);
}

}  // namespace

SharedBytes ScenarioImages::Load(const JsonReader& in) {
  const std::filesystem::path path = folder_ / in.Text();
  SharedBytes& image = loaded_[path];
  if (!image) image = std::make_shared<const Bytes>(LoadImageFile(in, path));
  return image;
}

SharedBytes ScenarioImages::Build(const ImageIdentity& identity, std::size_t size) {
  SharedBytes& image = built_[{identity.vid, identity.pid, identity.chip, identity.version, size}];
  if (!image) image = std::make_shared<const Bytes>(BuildImage(identity, size));
  return image;
}

ReportConfig ReadReports(const JsonReader& in) {
  ReportConfig reports;
  in.Number("output_report_length", reports.outputLength);
  in.Number("input_report_length", reports.inputLength);
  return reports;
}

namespace {

ReportConfig ReadHubReports(const JsonReader& in) {
  ReportConfig reports = ReadReports(in);
  in.Choice<OutEndpoint>("out_endpoint", reports.outEndpoint,
                         {{"none", OutEndpoint::None},
                          {"ignored", OutEndpoint::Ignored},
                          {"only", OutEndpoint::Only},
                          {"both", OutEndpoint::Both}});
  if (!in.Has("channels")) return reports;
  reports.channel1 = reports.channel2 = false;
  for (const JsonReader& item : in.Member("channels").Items()) {
    (item.Number(1, 2) == 1 ? reports.channel1 : reports.channel2) = true;
  }
  return reports;
}

}  // namespace

HubConfig ReadHub(const JsonReader& in, ScenarioImages& images) {
  HubConfig hub;
  ReadBanks(in, images, hub);
  in.Choice<Code>("running", hub.running, {{"rom", Code::Rom}, {"flash", Code::Flash}});
  if (in.Has("rom")) hub.rom = ReadRom(in.Member("rom"));
  in.Flag("isp_supported", hub.ispSupported);
  if (in.Has("timing")) hub.timing = ReadTiming(in.Member("timing"));
  hub.reports = ReadHubReports(in);
  if (in.Has("i2c")) {
    for (const JsonReader& item : in.Member("i2c").Items()) ReadI2cTarget(item, hub);
  }
  if (in.Has("bridge_flash")) hub.bridgeFlash = ReadBridgeFlash(in.Member("bridge_flash"));
  if (in.Has("gpio_high")) {
    for (const JsonReader& item : in.Member("gpio_high").Items()) {
      hub.gpioLevels[item.Number(0, kGpioLines - 1)] = true;
    }
  }
  return hub;
}

}  // namespace virtualhub
