// Listing.
#include <cstdlib>
#include <memory>
#include <new>

#include "discovery/dev_property.h"
#include "discovery/hid_find.h"
#include "discovery/record_text.h"
#include "log/msg.h"
#include "platform/ascii.h"
#include "platform/platform.h"

namespace qzhid {

namespace {

constexpr const char* kListTag = "CHidFind::ListHidDevice";
constexpr const char* kRootHubMarker = "ROOT_HUB";
constexpr std::size_t kTextCapacity = 1024;      // bytes of a text property
constexpr std::size_t kParentIdCapacity = 1024;  // characters
constexpr std::size_t kIdDigits = 4;

struct FreeRecords {
  void operator()(HidDevRecord* records) const { std::free(records); }
};
using Records = std::unique_ptr<HidDevRecord, FreeRecords>;

template <std::size_t N>
void Store(QZ_Utf16 (&field)[N], const std::wstring& text) {
  StoreText(field, N, text);
}

/// Stores the characters after the marker. Returns whether the marker is there.
template <std::size_t N>
bool StoreAfter(QZ_Utf16 (&field)[N], const std::wstring& text, const std::wstring& marker) {
  const std::size_t position = text.find(marker);
  if (position == std::wstring::npos) return false;
  Store(field, text.substr(position + marker.size(), kIdDigits));
  return true;
}

bool FillIds(HidDevRecord& record, int index) {
  std::wstring ids;
  if (!ReadHardwareIds(kListTag, record.dwInst, ids)) return false;
  Store(record.HwID, ids);
  const std::wstring id = FirstString(ids);
  CMsg::Instance().Log(1, kListTag, L"Index:%d,HwID:%ls\n", index, id.c_str());
  // Without a vendor id the product id is not looked for.
  if (StoreAfter(record.VID, id, L"VID_")) StoreAfter(record.PID, id, L"PID_");
  return true;
}

bool FillPlace(HidDevRecord& record) {
  platform::DevInst usbNode = 0;
  if (const auto status = platform::GetParent(record.dwInst, usbNode); !status) {
    CMsg::Instance().Log(3, kListTag, "Get Parent Devinst fail,Error:0x%x\n", status.code);
    return false;
  }
  if (const auto status = platform::GetAddressProperty(usbNode, record.Port); !status) {
    CMsg::Instance().Log(3, kListTag, "Get Dev Port Fail,ErrorCode:0x%x\n", status.code);
    return false;
  }
  if (!GetDevLevel(usbNode, record.Level)) {
    CMsg::Instance().Log(3, kListTag, "Get Dev Level Fail\n");
    return false;
  }
  std::wstring paths;
  const auto status = platform::GetTextProperty(usbNode, platform::TextProperty::LocationPaths,
                                                kTextCapacity, paths);
  if (!status) {
    CMsg::Instance().Log(3, kListTag, "Get Dev Path Fail,ErrorCode:0x%x\n", status.code);
    return false;
  }
  Store(record.LocationPath, paths);
  return true;
}

bool FillRecord(HidDevRecord& record, int index) {
  if (!FillIds(record, index) || !FillPlace(record)) return false;
  record.dwDevType = QZ_DEVICE_TYPE_HID;
  record.dwDevSubType = QZ_DEVICE_TYPE_HID;
  return true;
}

}  // namespace

int CHidFind::ListHidDevice(HidDevRecord** ppList, std::uint32_t* pCount) {
  CMsg::Instance().Log(1, kListTag, "List All Hid Device\n");
  EnumAllDevs();
  return ListNodes(ppList, pCount);
}

int CHidFind::ListHidDevice(std::uint32_t vid, std::uint32_t pid, HidDevRecord** ppList,
                            std::uint32_t* pCount) {
  CMsg::Instance().Log(1, kListTag, "List All Hid Device\n");
  EnumAllDevsWithFilter(vid, pid);
  return ListNodes(ppList, pCount);
}

int CHidFind::ListNodes(HidDevRecord** ppList, std::uint32_t* pCount) {
  const auto& nodes = CurrentDevInsts();
  *pCount = static_cast<std::uint32_t>(nodes.size());
  if (nodes.empty()) return 0;
  Records records(static_cast<HidDevRecord*>(std::calloc(nodes.size(), sizeof(HidDevRecord))));
  if (!records) throw std::bad_alloc();
  for (std::size_t i = 0; i < nodes.size(); ++i) records.get()[i].dwInst = nodes[i];
  *ppList = nullptr;
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    if (!FillRecord(records.get()[i], static_cast<int>(i))) return 0;
  }
  *ppList = records.release();
  return 1;
}

bool GetDevLevel(std::uint32_t node, std::uint32_t& level) {
  level = 0;
  for (platform::DevInst parent = 0; platform::GetParent(node, parent); node = parent) {
    std::string id;
    if (!platform::GetDeviceIdA(parent, kParentIdCapacity, id)) return false;
    UpperCase(id);
    ++level;
    if (id.find(kRootHubMarker) != std::string::npos) break;
  }
  return level > 0;
}

}  // namespace qzhid
