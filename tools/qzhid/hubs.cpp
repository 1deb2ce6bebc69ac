#include "qzhid/hubs.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>
#include <set>
#include <utility>

#include "common/texts.h"
#include "qzhid/attached.h"
#include "qzhid/doctor.h"
#include "qzhid/patience.h"
#include "qzhid/system.h"

namespace qzhid {

namespace {

constexpr std::uint16_t kFamilyVendorId = 0x2E7C;

// Ids and locations are ASCII; anything else shows as '?'.
std::string Text(const QZ_Utf16* text) {
  std::string plain;
  for (; *text != 0; ++text) plain += *text < 0x80 ? static_cast<char>(*text) : '?';
  return plain;
}

std::vector<std::string> Texts(const QZ_Utf16* list) {
  std::vector<std::string> texts;
  for (std::size_t at = 0; at < QZ_RECORD_TEXT_UNITS && list[at] != 0;) {
    texts.push_back(Text(list + at));
    at += texts.back().size() + 1;
  }
  return texts;
}

std::vector<Hub> TakeRecords(Host& host, HidDevRecord* records, std::uint32_t count) {
  std::vector<Hub> hubs;
  for (const HidDevRecord* record = records; record != records + count; ++record) {
    Hub hub = {record->dwInst, Upper(Text(record->VID)),    Upper(Text(record->PID)), record->Level,
               record->Port,   Texts(record->LocationPath), Texts(record->HwID)};
    hub.id = ReadPortId(hub.Location());
    hubs.push_back(std::move(hub));
  }
  host.Api().FreeDevList(records);
  return hubs;
}

// The hubs that can be opened. Of a device whose interface has several collections, one is enough.
std::vector<Hub> ListOpenableHubs(Host& host) {
  HidDevRecord* records = nullptr;
  std::uint32_t count = 0;
  if (host.Api().ListAllHidDev(&records, &count) == 0) return {};
  std::vector<Hub> hubs;
  for (Hub& hub : TakeRecords(host, records, count)) {
    const bool isKnown = !hub.locations.empty() && AtLocation(hubs, hub.Location()) != nullptr;
    if (!isKnown) hubs.push_back(std::move(hub));
  }
  return hubs;
}

// The HID devices of a vendor, and of one of its products if that is given.
std::vector<Hub> ListDevicesOf(Host& host, std::uint16_t vid, std::optional<std::uint16_t> pid) {
  HidDevRecord* records = nullptr;
  std::uint32_t count = 0;
  // The library looks for both ids anywhere in the device's id, so the vendor's is found twice.
  if (host.Api().ListAllHidDevByVIDPID(vid, pid.value_or(vid), &records, &count) == 0) return {};
  std::vector<Hub> devices = TakeRecords(host, records, count);
  std::erase_if(devices, [&](const Hub& device) {
    return device.vid != IdText(vid) || (pid && device.pid != IdText(*pid));
  });
  return devices;
}

bool AreOnOnePort(const Hub& hub, const Hub& other) {
  return hub.instance == other.instance ||
         (!hub.id.port.empty() && hub.id.Device() == other.id.Device());
}

// Appends those that are on other ports.
void AddOthers(std::vector<Hub>& hubs, const std::vector<Hub>& others) {
  const std::vector<Hub> known = hubs;
  for (const Hub& other : others) {
    if (std::none_of(known.begin(), known.end(),
                     [&other](const Hub& hub) { return AreOnOnePort(hub, other); })) {
      hubs.push_back(other);
    }
  }
}

std::vector<Hub> HubsOfSystem() {
  std::vector<Hub> hubs;
  for (const AttachedHub& attached : AttachedHubs()) {
    Hub hub;
    hub.vid = attached.vid;
    hub.pid = attached.pid;
    hub.locations = {attached.location};
    hub.id = ReadPortId(attached.location);
    hub.isOpenable = false;
    hub.hasNode = attached.hasNode;
    hubs.push_back(std::move(hub));
  }
  return hubs;
}

void NameHubs(std::vector<Hub>& hubs, const PortNames& names) {
  std::set<std::string> controllers;
  for (const Hub& hub : hubs) {
    if (!hub.id.port.empty()) controllers.insert(hub.id.controller);
  }
  for (Hub& hub : hubs) {
    hub.shownId = controllers.size() > 1 ? hub.id.Whole() : hub.id.port;
    if (hub.id.port.empty()) hub.shownId = "instance:" + std::to_string(hub.instance);
    for (const auto& [name, port] : names) {
      // One port of this number may have a name of its own, and those of other controllers another.
      const bool isWhole = port.find('/') != std::string::npos;
      if (hub.id.Is(port) && (isWhole || hub.userName.empty())) hub.userName = name;
    }
  }
}

}  // namespace

std::string Hub::Name() const { return shownId + (userName.empty() ? "" : " (" + userName + ")"); }

nlohmann::ordered_json ToJson(const Hub& hub) {
  return {
      {"port_id", hub.shownId},
      {"name", OrNull(hub.userName)},
      {"vid", hub.vid},
      {"pid", hub.pid},
      {"location", hub.Location()},
      {"level", hub.level},
      {"port", hub.port},
      {"instance", hub.hasNode ? nlohmann::ordered_json(hub.instance) : nlohmann::ordered_json()}};
}

std::string VersionText(std::uint16_t version) {
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), "%x.%02x", version >> 8u, version & 0xFFu);
  return text.data();
}

std::string IdText(std::uint32_t id) {
  return Upper(tools::HexText(static_cast<std::uint16_t>(id)));
}

std::vector<Hub> ListDevices(Host& host, std::uint16_t vid, std::uint16_t pid) {
  std::vector<Hub> devices = ListDevicesOf(host, vid, pid);
  NameHubs(devices, host.Names());
  return devices;
}

std::vector<Hub> ListHubs(Host& host) {
  // That list opens no device, so it also holds hubs that this user has no permission to open. It
  // comes first, because instances are good for the last list.
  std::vector<Hub> closed = ListDevicesOf(host, kFamilyVendorId, std::nullopt);
  for (const ListedIds& ids : host.FurtherIds()) {
    AddOthers(closed, ListDevicesOf(host, ids.vid, ids.pid));
  }
  for (Hub& hub : closed) hub.isOpenable = false;
  std::vector<Hub> hubs = ListOpenableHubs(host);
  AddOthers(hubs, closed);
  if (!host.IsVirtual()) {
    std::vector<Hub> others = HubsOfSystem();
    std::erase_if(others, [](const Hub& hub) { return hub.hasNode; });
    AddOthers(hubs, others);
  }
  NameHubs(hubs, host.Names());
  return hubs;
}

std::vector<Hub> ListAttachedHubs(Host& host) {
  std::vector<Hub> hubs = HubsOfSystem();
  NameHubs(hubs, host.Names());
  return hubs;
}

Failure NotOpenable(const Hub& hub) {
  if (!hub.hasNode) return {Exit::Refused, "the hub has no HID node", hub.Name(), kFindNode};
  constexpr const char* kRemedy =
      "get permission for it (on Linux: the udev rule) or end the program that has it open";
  const std::string remedy = SystemRemedy();
  return {Exit::NoPermission, "the hub cannot be opened", hub.Name(),
          remedy.empty() ? kRemedy : remedy};
}

const Hub* AtLocation(const std::vector<Hub>& hubs, const std::string& location) {
  const auto found = std::find_if(
      hubs.begin(), hubs.end(), [&location](const Hub& hub) { return hub.Location() == location; });
  return found == hubs.end() ? nullptr : &*found;
}

OpenHub::OpenHub(Host& host, const Hub& hub) : host_(host), hub_(hub) {
  const Patience patience(host, "hub " + hub.Name() + " to answer");
  handle_ = host.Api().OpenHid(hub.instance);
  if (handle_ == nullptr) {
    throw Failure(Exit::HubLost, "the hub does not answer", hub.Name(),
                  "unplug it, plug it in again and repeat the command");
  }
}

OpenHub::~OpenHub() { host_.Api().CloseDev(handle_); }

void OpenHub::Do(const std::string& what, const std::function<std::uint32_t()>& call) const {
  std::uint32_t status = 0;
  {
    const Patience patience(host_, "hub " + hub_.Name() + " to answer");
    status = call();
  }
  if (status == 0) return;
  const std::vector<Hub> hubs = ListHubs(host_);
  if (AtLocation(hubs, hub_.Location()) == nullptr) {
    throw Failure(Exit::HubLost, what + " failed, and the hub is gone", hub_.Name(),
                  "plug it in again and repeat the command");
  }
  throw Failure(Exit::Failed,
                what + " failed with status " + std::to_string(status) + " (" +
                    system::StatusText(status) + ")",
                hub_.Name(), "check the address and that the hub runs its firmware ('qzhid info')");
}

}  // namespace qzhid
