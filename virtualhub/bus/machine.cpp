#include "virtualhub/bus/machine.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <limits>
#include <stdexcept>
#include <thread>
#include <utility>

#include "virtualhub/scenario/state_file.h"

namespace virtualhub {

namespace {

constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();
// As on the system that this is built for.
constexpr InstanceNumbers kUsualNumbers = InstanceNumbers::QZ_USUAL_INSTANCE_NUMBERS;

PortPath ParsePort(const std::string& text) {
  const auto port = PortPath::Parse(text);
  if (!port) throw std::out_of_range("no such port: " + text);
  return *port;
}

}  // namespace

Machine::Device::Device(const DeviceConfig& deviceConfig)
    : config(deviceConfig),
      port(deviceConfig.port),
      hub(deviceConfig.hub ? std::make_unique<Hub>(*deviceConfig.hub) : nullptr),
      replay(deviceConfig.replay ? std::optional<Replay>(deviceConfig.replay) : std::nullopt),
      channel(deviceConfig.hub ? deviceConfig.hub->reports : deviceConfig.reports) {
  if (config.hub) config.reports = config.hub->reports;
  config.hub.reset();  // the hub holds its own configuration
}

Machine::Machine(const Scenario& scenario)
    : clock_(scenario.time.value_or(Clock::Mode::Real)),
      host_(scenario.host),
      stateFolder_(scenario.stateFolder),
      tree_(scenario.instanceNumbers.value_or(kUsualNumbers), scenario.rootHubs, scenario.hubs) {
  StartCapture(scenario);
  devices_.reserve(scenario.devices.size());
  for (const DeviceConfig& config : scenario.devices) {
    Device& device = devices_.emplace_back(config);
    LoadState(device);
    if (config.plugged) Arrive(device, 0);
    device.readyAtUs = 0;
  }
  SetOrder(scenario.enumerationOrder);
  for (const Fault& fault : scenario.faults) AddFault(fault);
  if (scenario.record) recorder_.Start();
  if (scenario.controlFile.empty()) return;
  control_ = ControlFile(scenario.controlFile);
  ReadControl();
  // What the lines so far did is over.
  for (Device& device : devices_) {
    if (device.returnAtUs) Arrive(device, 0);
    device.readyAtUs = 0;
  }
}

// Devices that are not named come last.
void Machine::SetOrder(const std::vector<std::string>& names) {
  for (const std::string& name : names) order_.push_back(&Named(name));
  for (const Device& device : devices_) {
    if (std::find(order_.begin(), order_.end(), &device) == order_.end()) order_.push_back(&device);
  }
}

void Machine::StartCapture(const Scenario& scenario) {
  constexpr std::uint16_t kUsbLinuxMmapped = 220;  // LINKTYPE_USB_LINUX_MMAPPED
  if (scenario.captureFile.empty()) return;
  const auto existing =
      scenario.replacesCapture ? PcapngFile::Existing::Replaced : PcapngFile::Existing::Kept;
  try {
    capture_ = std::make_unique<UsbCapture>(
        PcapngFile(scenario.captureFile, existing, kUsbLinuxMmapped), clock_);
  } catch (const FileError& error) {
    std::cerr << "virtualhub: the capture " << scenario.captureFile.string() << ' ' << error.what()
              << '\n';
  }
}

Machine::~Machine() {
  for (Device& device : devices_) SaveState(device);
}

void Machine::Save() {
  constexpr int kTries = 100;
  std::unique_lock<std::mutex> lock(mutex_, std::try_to_lock);
  for (int i = 1; i < kTries && !lock; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (lock.try_lock()) break;
  }
  if (!lock) return;
  for (Device& device : devices_) SaveState(device);
}

void Machine::LoadState(Device& device) {
  if (stateFolder_.empty() || !device.hub) return;
  const auto file = StateFilePath(stateFolder_, device.config.name);
  std::error_code unknown;
  const auto savedAt = std::filesystem::last_write_time(file, unknown);
  if (device.savedAt == savedAt) return;
  device.savedAt = savedAt;
  try {
    LoadStateFile(file, *device.hub);
    device.savedFlash = device.hub->SaveFlash();
  } catch (const FileError& error) {
    std::cerr << "virtualhub: the state file " << file.string() << ' ' << error.what()
              << "; the hub starts with the image of the scenario\n";
  }
}

void Machine::SaveState(Device& device) {
  if (stateFolder_.empty() || !device.hub) return;
  const auto file = StateFilePath(stateFolder_, device.config.name);
  // When nothing changed here, another process may have changed the file meanwhile.
  Bytes flash = device.hub->SaveFlash();
  std::error_code unknown;
  if (flash == device.savedFlash && std::filesystem::exists(file, unknown)) return;
  try {
    SaveStateFile(file, *device.hub);
    device.savedFlash = std::move(flash);
    device.savedAt = std::filesystem::last_write_time(file, unknown);
  } catch (const FileError& error) {
    std::cerr << "virtualhub: the state file " << file.string() << ' ' << error.what() << '\n';
  }
}

// ---- The bus ------------------------------------------------------------------------------------

void Machine::CatchUp() {
  ReadControl();
  const std::uint64_t now = clock_.NowUs();
  if (now < nextChangeUs_) return;
  nextChangeUs_ = 0;  // if memory runs out on the way, the rest is done later
  std::uint64_t next = kNever;
  for (Device& device : devices_) {
    if (device.leaveAtUs && *device.leaveAtUs <= now) Leave(device);
    if (device.returnAtUs && *device.returnAtUs <= now) Arrive(device, *device.returnAtUs);
    next = std::min({next, device.leaveAtUs.value_or(kNever), device.returnAtUs.value_or(kNever)});
  }
  nextChangeUs_ = next;
}

void Machine::Arrive(Device& device, std::uint64_t atUs) {
  device.ids = device.config.ids;
  if (device.hub) {
    const ImageIdentity identity = device.hub->Identity();
    device.ids = {identity.vid, identity.pid};
    device.readyAtUs = atUs + device.hub->timing().readyMs * kUsPerMs;
  }
  if (device.replay) {
    const CapturedStay& stay = device.replay->stay();
    device.ids = stay.ids;
    device.config.reports = stay.reports;
    device.channel = ReportChannel(stay.reports);
    device.config.productText = stay.productText;
  }
  UsbTree::Instance nodes = tree_.Attach(device.port, device.ids, device.config);
  try {
    byNode_[nodes.usb] = &device;
    for (const DevInst node : nodes.hidNodes) byNode_[node] = &device;
    for (const DevInst node : nodes.interfaces) byNode_[node] = &device;
  } catch (...) {
    ForgetNodes(nodes);
    tree_.Detach(nodes);
    throw;
  }
  device.nodes = std::move(nodes);
  device.stay = ++stays_;
  hidNodes_.reset();
  device.returnAtUs.reset();  // not earlier: without memory for its nodes it arrives later
  if (capture_) capture_->Arrive(Describe(device));
}

void Machine::Leave(Device& device) {
  device.leaveAtUs.reset();
  device.readyAtUs = kNever;
  device.channel.DropAnswer();
  if (capture_) capture_->Leave({device.nodes.hid, device.stay});
  ForgetNodes(device.nodes);
  hidNodes_.reset();
  tree_.Detach(device.nodes);
  if (device.replay) device.replay->Leave();
}

void Machine::ForgetNodes(const UsbTree::Instance& nodes) {
  byNode_.erase(nodes.usb);
  for (const DevInst node : nodes.hidNodes) byNode_.erase(node);
  for (const DevInst node : nodes.interfaces) byNode_.erase(node);
}

void Machine::LosePlug(Device& device, std::optional<std::uint32_t> returnMs,
                       const std::string& port) {
  Leave(device);
  if (device.hub) device.hub->Unplug();
  if (!port.empty()) device.port = ParsePort(port);
  device.returnAtUs.reset();
  if (returnMs) {
    device.returnAtUs = clock_.NowUs() + *returnMs * kUsPerMs;
    Schedule(*device.returnAtUs);
  }
  SaveState(device);
}

void Machine::LosePower(Device& device, std::optional<std::uint32_t> returnMs,
                        const std::string& port) {
  if (device.hub) device.hub->PowerLoss();
  LosePlug(device, returnMs, port);
}

void Machine::StartReset(Device& device, std::uint64_t leaveUs, std::uint64_t awayUs) {
  const Fault* fault = faults_.Strike({.on = Fault::On::Reset, .device = device.config.name});
  device.leaveAtUs = clock_.NowUs() + leaveUs;
  Schedule(*device.leaveAtUs);
  device.returnAtUs = *device.leaveAtUs + awayUs;
  device.readyAtUs = kNever;
  if (fault == nullptr) return;
  if (fault->action == Fault::Action::Hold) Hold(device, fault->releaseMs);
  if (fault->action == Fault::Action::NeverReturn) device.returnAtUs.reset();
  // The nodes that are still there keep their texts until they go.
  if (fault->action == Fault::Action::ReturnAt) device.port = ParsePort(fault->port);
}

void Machine::Hold(Device& device, std::optional<std::uint32_t> releaseMs) {
  device.heldUntilUs = releaseMs ? clock_.NowUs() + *releaseMs * kUsPerMs : kNever;
}

Machine::Device& Machine::Named(std::string_view device) {
  for (Device& candidate : devices_) {
    if (candidate.config.name == device) return candidate;
  }
  throw std::out_of_range("no such device: " + std::string(device));
}

Machine::Device* Machine::OfNode(DevInst node) {
  const auto found = byNode_.find(node);
  return found == byNode_.end() ? nullptr : found->second;
}

Machine::Device* Machine::OfHidNode(DevInst node) {
  Device* device = OfNode(node);
  if (device == nullptr) return nullptr;
  const std::vector<DevInst>& nodes = device->nodes.hidNodes;
  return std::find(nodes.begin(), nodes.end(), node) == nodes.end() ? nullptr : device;
}

Machine::Device* Machine::OfHidNode(const HidNode& node) {
  Device* device = OfHidNode(node.number);
  return device != nullptr && device->stay == node.stay ? device : nullptr;
}

// ---- What a host does ---------------------------------------------------------------------------

const Node* Machine::View::FindNode(DevInst node) const { return machine_.tree_.Find(node); }

std::shared_ptr<const std::vector<DevInst>> Machine::View::HidNodes() const {
  if (machine_.hidNodes_) return machine_.hidNodes_;
  std::vector<DevInst> nodes;
  for (const Device* device : machine_.order_) {
    const std::vector<DevInst>& own = device->nodes.hidNodes;
    nodes.insert(nodes.end(), own.begin(), own.end());
  }
  machine_.hidNodes_ = std::make_shared<const std::vector<DevInst>>(std::move(nodes));
  return machine_.hidNodes_;
}

HidNode Machine::View::PresentHid(DevInst number) const {
  const Device* device = machine_.OfHidNode(number);
  return device == nullptr ? HidNode{} : HidNode{number, device->stay};
}

const DeviceConfig* Machine::View::FindHid(const HidNode& node) const {
  const Device* device = machine_.OfHidNode(node);
  return device == nullptr ? nullptr : &device->config;
}

bool Machine::View::IsHeld(DevInst node) const {
  const Device* device = machine_.OfNode(node);
  return device != nullptr && machine_.clock_.NowUs() < device->heldUntilUs;
}

Result Machine::BeginCall(Service service, DevInst node) {
  CatchUp();
  Device* concerned = OfNode(node);
  const Fault* fault =
      faults_.Strike({.on = Fault::On::Call,
                      .device = concerned == nullptr ? std::string_view() : concerned->config.name,
                      .service = service});
  if (fault == nullptr) return {};
  if (fault->action == Fault::Action::Fail) return {Error::SystemCode, fault->code};
  if (fault->action == Fault::Action::Stall) return {Error::Stall};
  StrikeDevice(*fault, concerned);
  return {};
}

void Machine::EndCall(Service service, DevInst node, std::uint32_t value, const Result& result) {
  if (!recorder_.IsOn()) return;
  recorder_.Add({.kind = Record::Kind::Call,
                 .timeUs = clock_.NowUs(),
                 .instance = node,
                 .service = service,
                 .value = value,
                 .result = result});
}

// Whether the device concerned has left the bus by it.
bool Machine::StrikeDevice(const Fault& fault, Device* concerned) {
  Device* device = fault.device.empty() ? concerned : &Named(fault.device);
  if (device == nullptr) return false;
  if (fault.action == Fault::Action::Unplug) {
    LosePlug(*device, fault.returnMs, fault.port);
  } else if (fault.action == Fault::Action::PowerLoss) {
    LosePower(*device, fault.returnMs, fault.port);
  } else {
    if (fault.action == Fault::Action::Hold) Hold(*device, fault.releaseMs);
    return false;
  }
  return device == concerned;
}

std::optional<BusDevice> Machine::OnBus(std::string_view name) {
  const std::lock_guard<std::mutex> guard(mutex_);
  CatchUp();
  const Device& device = Named(name);
  if (!device.present()) return std::nullopt;
  return Describe(device);
}

BusDevice Machine::Describe(const Device& device) const {
  const DeviceConfig& config = device.config;
  return {config.name,
          {device.nodes.hid, device.stay},
          device.port,
          device.ids,
          config.productText,
          config.reports,
          device.replay ? device.replay->SharedStay() : nullptr};
}

bool Machine::IsPresent(const HidNode& node) {
  const std::lock_guard<std::mutex> guard(mutex_);
  CatchUp();
  return OfHidNode(node) != nullptr;
}

void Machine::SleepMs(std::uint32_t milliseconds) {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (recorder_.IsOn()) {
      recorder_.Add({.kind = Record::Kind::Sleep, .timeUs = clock_.NowUs(), .value = milliseconds});
    }
  }
  clock_.SleepUs(milliseconds * kUsPerMs);
}

void Machine::DebugText(std::string text) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (!recorder_.IsOn()) return;
  recorder_.Add({.kind = Record::Kind::Debug,
                 .timeUs = clock_.NowUs(),
                 .text = std::move(text),
                 .result = {}});
}

// ---- What a test does ---------------------------------------------------------------------------

DevInst Machine::HidInstance(std::string_view device) {
  const std::lock_guard<std::mutex> guard(mutex_);
  CatchUp();
  return Named(device).nodes.hid;
}

DevInst Machine::UsbInstance(std::string_view device) {
  const std::lock_guard<std::mutex> guard(mutex_);
  CatchUp();
  return Named(device).nodes.usb;
}

void Machine::Unplug(std::string_view device, std::optional<std::uint32_t> returnMs,
                     const std::string& port) {
  const std::lock_guard<std::mutex> guard(mutex_);
  CatchUp();
  LosePlug(Named(device), returnMs, port);
}

void Machine::PowerLoss(std::string_view device, std::optional<std::uint32_t> returnMs,
                        const std::string& port) {
  const std::lock_guard<std::mutex> guard(mutex_);
  CatchUp();
  LosePower(Named(device), returnMs, port);
}

void Machine::Plug(std::string_view device, const std::string& port) {
  const std::lock_guard<std::mutex> guard(mutex_);
  CatchUp();
  Device& plugged = Named(device);
  if (plugged.present()) return;
  if (!port.empty()) plugged.port = ParsePort(port);
  Arrive(plugged, clock_.NowUs());
}

void Machine::AddFault(const Fault& fault) {
  const std::lock_guard<std::mutex> guard(mutex_);
  // A fault that cannot strike is a mistake of the caller.
  if ((fault.on == Fault::On::Call) != fault.service.has_value()) {
    throw std::invalid_argument("a service goes with Fault::On::Call, and only with it");
  }
  if (!fault.device.empty()) Named(fault.device);
  if (!fault.port.empty()) ParsePort(fault.port);
  faults_.Add(fault);
}

void Machine::ClearFaults() {
  const std::lock_guard<std::mutex> guard(mutex_);
  faults_.Clear();
}

void Machine::SetExchangeHook(ExchangeHook hook) {
  const std::lock_guard<std::mutex> guard(mutex_);
  hook_ = hook ? std::make_shared<const ExchangeHook>(std::move(hook)) : nullptr;
}

void Machine::SetFirmwareDouble(FirmwareDouble firmware) {
  const std::lock_guard<std::mutex> guard(mutex_);
  double_ = std::move(firmware);
}

std::uint64_t Machine::exchanges() {
  const std::lock_guard<std::mutex> guard(mutex_);
  return exchanges_;
}

Hub& Machine::hub(std::string_view device) {
  const std::lock_guard<std::mutex> guard(mutex_);
  CatchUp();
  const Device& named = Named(device);
  if (!named.hub) throw std::out_of_range("not a hub: " + std::string(device));
  return *named.hub;
}

}  // namespace virtualhub
