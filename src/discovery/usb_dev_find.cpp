#include "discovery/usb_dev_find.h"

#include <algorithm>
#include <cwchar>
#include <iterator>

#include "device/dev.h"
#include "discovery/dev_property.h"
#include "log/msg.h"
#include "transport/request_cmd.h"

namespace qzhid {

namespace {

constexpr int kArriveAttempts = 100;
constexpr int kArriveExAttempts = 10;
constexpr std::uint32_t kPollPauseMs = 100;
constexpr std::size_t kHardwareIdsCapacity = 1024;  // bytes

std::wstring HexText(std::uint32_t id) {
  wchar_t text[16] = {};
  std::swprintf(text, sizeof(text) / sizeof(text[0]), L"%x", id & 0xFFFF);
  return text;
}

std::wstring LowerCase(std::wstring text) {
  for (wchar_t& c : text) {
    if (c >= L'A' && c <= L'Z') c = static_cast<wchar_t>(c - L'A' + L'a');
  }
  return text;
}

}  // namespace

int ConnectPoll(int attempts) {
  for (int attempt = 1; attempt <= attempts; ++attempt) {
    if (CRequestCMD::Instance().Yv_VdCmdEnable(kEnableCommands) == 0) return attempt;
    platform::SleepMs(kPollPauseMs);
  }
  return 0;
}

bool ReadHardwareIds(const char* tag, std::uint32_t node, std::wstring& ids) {
  const auto status = platform::GetTextProperty(node, platform::TextProperty::HardwareIds,
                                                kHardwareIdsCapacity, ids);
  if (!status) {
    CMsg::Instance().Log(3, tag, "Get Dev Hw Id Fail,ErrorCode:0x%x\n", status.code);
  }
  return status.ok;
}

void CUSBDevFind::ScanDevs() {
  EnumAllDevs();
  DiffDevList();
  RemoveAllDevs();
  ArriveAllDevs();
}

void CUSBDevFind::ScanDevsEx() {
  EnumAllDevs();
  DiffDevList();
  RemoveAllDevs();
  ArriveAllDevsEx();
}

int CUSBDevFind::DummyRemove(IDev* dev) {
  CMsg::Instance().Log(0, "CUSBDevFind::DummyRemove", "Into dummy remove function\n");
  m_LastDevInsts.clear();
  dev->Remove();
  return 1;
}

int CUSBDevFind::ForceRemove(IDev* dev) {
  CMsg::Instance().Log(0, "CUSBDevFind::ForceRemove", "Into force remove function\n");
  CRequestCMD::Instance().Yv_CloseDevice();
  m_LastDevInsts.clear();
  dev->ForceRemove();
  return 1;
}

bool CUSBDevFind::EnumAllDevs() {
  return EnumNodes("CUSBDevFind::EnumAllDevs",
                   [this](std::uint32_t node) { return !IsExcludedDev(node); });
}

bool CUSBDevFind::EnumAllDevsWithFilter(std::uint32_t vid, std::uint32_t pid) {
  constexpr const char* kTag = "CUSBDevFind::EnumAllDevsWithFilter";
  const std::wstring vidText = HexText(vid);
  const std::wstring pidText = HexText(pid);
  return EnumNodes(kTag, [&](std::uint32_t node) {
    std::wstring ids;
    if (!ReadHardwareIds(kTag, node, ids)) return false;
    const std::wstring id = LowerCase(FirstString(ids));
    return id.find(vidText) != std::wstring::npos && id.find(pidText) != std::wstring::npos;
  });
}

bool CUSBDevFind::EnumNodes(const char* tag, const std::function<bool(std::uint32_t)>& isWanted) {
  const platform::Guid* const interfaceClass = GetClassGuid();
  platform::NodeSet set;
  const auto status = platform::OpenNodeSet(*interfaceClass, set);
  if (!status) {
    CMsg::Instance().Log(1, tag, "SetupDiGetClassDevs failed %d\n", static_cast<int>(status.code));
    return false;
  }
  m_CurDevInsts.clear();
  platform::DevInst node = 0;
  for (std::uint32_t index = 0; platform::EnumNode(set, index, node); ++index) {
    if (isWanted(node)) m_CurDevInsts.push_back(node);
  }
  return platform::CloseNodeSet(set).ok;
}

bool CUSBDevFind::IsExcludedDev(std::uint32_t devInst) {
  return std::any_of(m_ExcludeFilters.begin(), m_ExcludeFilters.end(),
                     [&](IDevFilter* filter) { return filter->Claims(devInst); });
}

void CUSBDevFind::DiffDevList() {
  // Most systems list their nodes in order, and most scans find nothing new.
  if (!std::is_sorted(m_CurDevInsts.begin(), m_CurDevInsts.end())) {
    std::sort(m_CurDevInsts.begin(), m_CurDevInsts.end());
  }
  m_CurDevInsts.erase(std::unique(m_CurDevInsts.begin(), m_CurDevInsts.end()), m_CurDevInsts.end());
  m_ArrivedDevInsts.clear();
  std::set_difference(m_CurDevInsts.begin(), m_CurDevInsts.end(), m_LastDevInsts.begin(),
                      m_LastDevInsts.end(), std::back_inserter(m_ArrivedDevInsts));
  m_RemovedDevInsts.clear();
  std::set_difference(m_LastDevInsts.begin(), m_LastDevInsts.end(), m_CurDevInsts.begin(),
                      m_CurDevInsts.end(), std::back_inserter(m_RemovedDevInsts));
  m_LastDevInsts = m_CurDevInsts;
}

void CUSBDevFind::RemoveAllDevs() {
  for (const std::uint32_t node : m_RemovedDevInsts) {
    const auto found = std::find_if(m_DevObjects.begin(), m_DevObjects.end(),
                                    [&](IDev* dev) { return dev->IsDevInst(node); });
    if (found == m_DevObjects.end()) continue;
    CRequestCMD::Instance().Yv_CloseDevice();
    (*found)->Remove();
  }
}

void CUSBDevFind::ArriveAllDevs() {
  for (const std::uint32_t node : m_ArrivedDevInsts) {
    if (ArriveNode(node, node, kArriveAttempts)) return;
  }
}

bool CUSBDevFind::ArriveNode(std::uint32_t matchNode, std::uint32_t node, int attempts) {
  for (IDev* const dev : m_DevObjects) {
    if (!dev->IsMatch(matchNode)) continue;
    if (CRequestCMD::Instance().QZ_OpenDevice(node) != 0) continue;
    if (ConnectPoll(attempts) == 0) return false;
    dev->Arrive(node);
    return true;
  }
  return false;
}

void CUSBDevFind::CollectSuitDevs() {
  for (const std::uint32_t node : m_ArrivedDevInsts) {
    for (IDev* const dev : m_DevObjects) {
      if (dev->IsMatch(node)) m_SuitDevInsts.push_back(node);
    }
  }
}

void CUSBDevFind::ArriveAllDevsEx() {
  constexpr const char* kTag = "CUSBDevFind::ArriveAllDevsEx";
  CMsg& msg = CMsg::Instance();
  if (m_bCollectSuit) CollectSuitDevs();
  if (m_SuitDevInsts.empty()) {
    msg.Log(1, kTag, "Can not find suit device.\n");
    return;
  }
  msg.Log(1, kTag, "Suit device num is %d\n.", static_cast<int>(m_SuitDevInsts.size()));
  m_bCollectSuit = false;
  const std::uint32_t node = m_SuitDevInsts.front();
  m_SuitDevInsts.pop_front();
  for (IDev* const dev : m_DevObjects) {
    if (CRequestCMD::Instance().QZ_OpenDevice(node) != 0) continue;
    const int attempts = ConnectPoll(kArriveExAttempts);
    if (attempts != 0) dev->Arrive(node);
    // The line marks the use of the last attempt, not its failure.
    if (attempts == kArriveExAttempts) msg.Log(1, kTag, "Polling connect with hub fail.\n");
    return;
  }
}

}  // namespace qzhid
