#include "qzhid/hubs.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <iterator>
#include <utility>

#include "common/texts.h"

namespace qzhid {

namespace {

constexpr std::uint32_t kFamilyVendorId = 0x2E7C;
// Device ids always hold a zero digit, so this product id matches every device of a vendor.
constexpr std::uint32_t kAnyProductId = 0;

std::string Upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

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
    hubs.push_back({record->dwInst, Upper(Text(record->VID)), Upper(Text(record->PID)),
                    record->Level, record->Port, Texts(record->LocationPath), Texts(record->HwID)});
  }
  host.Api().FreeDevList(records);
  return hubs;
}

bool Matches(const Hub& hub, const std::string& wanted) {
  const std::string text = Upper(wanted);
  return text.empty() || text == hub.vid + ":" + hub.pid ||
         std::any_of(hub.locations.begin(), hub.locations.end(),
                     [&text](const std::string& place) { return Upper(place).ends_with(text); });
}

}  // namespace

nlohmann::ordered_json ToJson(const Hub& hub) {
  return {{"instance", hub.instance}, {"vid", hub.vid},   {"pid", hub.pid},
          {"level", hub.level},       {"port", hub.port}, {"location", hub.Location()}};
}

std::string VersionText(std::uint16_t version) {
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), "%x.%02x", version >> 8u, version & 0xFFu);
  return text.data();
}

std::string IdText(std::uint32_t id) {
  return Upper(tools::HexText(static_cast<std::uint16_t>(id)));
}

std::vector<Hub> ListHubs(Host& host) {
  HidDevRecord* records = nullptr;
  std::uint32_t count = 0;
  if (host.Api().ListAllHidDev(&records, &count) == 0) return {};
  return TakeRecords(host, records, count);
}

std::vector<Hub> ListDevices(Host& host, std::uint32_t vid, std::uint32_t pid) {
  HidDevRecord* records = nullptr;
  std::uint32_t count = 0;
  if (host.Api().ListAllHidDevByVIDPID(vid, pid, &records, &count) == 0) return {};
  return TakeRecords(host, records, count);
}

std::vector<Hub> ListClosedHubs(Host& host) {
  // That list opens no device, so it also holds hubs that this user has no permission to open.
  std::vector<Hub> closed = ListDevices(host, kFamilyVendorId, kAnyProductId);
  if (closed.empty()) return closed;
  for (const Hub& hub : ListHubs(host)) {
    std::erase_if(closed, [&hub](const Hub& other) { return other.instance == hub.instance; });
  }
  return closed;
}

Failure NoPermission(const std::string& hub) {
  return {Exit::NoPermission, "a hub is attached, but it cannot be opened", hub,
          "get permission for it (on Linux: the udev rule) or end the program that has it open"};
}

void CheckPermission(Host& host, const std::string& wanted) {
  for (const Hub& hub : ListClosedHubs(host)) {
    if (wanted == std::to_string(hub.instance) || Matches(hub, wanted)) throw NoPermission("");
  }
}

namespace {

[[noreturn]] void FailToFind(Host& host, const std::string& wanted) {
  CheckPermission(host, wanted);
  const std::string what =
      wanted.empty() ? "no hub is attached" : "no hub matches '" + wanted + "'";
  throw Failure(Exit::NoSuchHub, what, "", "see 'qzhid list' for the hubs that are attached");
}

}  // namespace

std::vector<Hub> AllHubs(Host& host) {
  std::vector<Hub> hubs = ListHubs(host);
  if (hubs.empty()) FailToFind(host, "");
  for (Hub& hub : ListClosedHubs(host)) hubs.push_back(std::move(hub));
  return hubs;
}

Hub PickHub(Host& host, const std::string& wanted) {
  const std::vector<Hub> hubs = ListHubs(host);
  for (const Hub& hub : hubs) {
    if (wanted == std::to_string(hub.instance)) return hub;
    if (!wanted.empty() && wanted == hub.Location()) return hub;
  }
  std::vector<Hub> matching;
  std::copy_if(hubs.begin(), hubs.end(), std::back_inserter(matching),
               [&wanted](const Hub& hub) { return Matches(hub, wanted); });
  if (matching.empty()) FailToFind(host, wanted);
  if (matching.size() == 1) return matching.front();
  std::string numbers;
  for (const Hub& hub : matching) numbers += " " + std::to_string(hub.instance);
  throw Failure(
      Exit::WrongUse,
      wanted.empty() ? "several hubs are attached" : "several hubs match '" + wanted + "'", "",
      "name one of these instances:" + numbers);
}

const Hub* AtLocation(const std::vector<Hub>& hubs, const std::string& location) {
  const auto found = std::find_if(
      hubs.begin(), hubs.end(), [&location](const Hub& hub) { return hub.Location() == location; });
  return found == hubs.end() ? nullptr : &*found;
}

OpenHub::OpenHub(Host& host, const Hub& hub)
    : host_(host), hub_(hub), handle_(host.Api().OpenHid(hub.instance)) {
  if (handle_ == nullptr) {
    throw Failure(Exit::HubLost, "the hub does not answer", hub.Name(),
                  "unplug it, plug it in again and repeat the command");
  }
}

OpenHub::~OpenHub() { host_.Api().CloseDev(handle_); }

void OpenHub::Check(std::uint32_t status, const std::string& what) const {
  if (status == 0) return;
  const std::vector<Hub> hubs = ListHubs(host_);
  if (AtLocation(hubs, hub_.Location()) == nullptr) {
    throw Failure(Exit::HubLost, what + " failed, and the hub is gone", hub_.Name(),
                  "plug it in again and repeat the command");
  }
  throw Failure(Exit::Failed, what + " failed with status " + std::to_string(status), hub_.Name(),
                "check the address and that the hub runs its firmware ('qzhid info')");
}

}  // namespace qzhid
