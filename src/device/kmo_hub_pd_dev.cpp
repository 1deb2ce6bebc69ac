#include "device/kmo_hub_pd_dev.h"

#include <algorithm>
#include <tuple>

#include "firmware/hub_fw_finder.h"
#include "log/msg.h"

namespace qzhid {

CKmoHubPDDev::CKmoHubPDDev() : m_StateTable(MakeStates(*this)) {
  m_pCurState = CKmoHubPDDev::GetStateById(kStateOffline);
}

CState* CKmoHubPDDev::GetStateById(int id) {
  const auto found = m_StateTable.find(id);
  return found != m_StateTable.end() ? found->second.get() : nullptr;
}

void CKmoHubPDDev::InitFwFinder(const char* path) {
  m_pFwFinder = std::make_unique<CHubFwFinder>(path);
}

void CKmoHubPDDev::AddVidPid(std::uint32_t first, std::uint32_t second) {
  m_VidPidList.emplace_back(first, second);
}

void CKmoHubPDDev::RemoveVidPid(std::uint32_t first, std::uint32_t second) {
  const auto found = std::find(m_VidPidList.begin(), m_VidPidList.end(), VidPid{first, second});
  if (found != m_VidPidList.end()) m_VidPidList.erase(found);
}

bool CKmoHubPDDev::GetVidPid(std::uint32_t& first, std::uint32_t& second, std::size_t index) {
  if (index >= m_VidPidList.size()) return false;
  std::tie(first, second) = m_VidPidList[index];
  return true;
}

void CKmoHubPDDev::SetPosition(std::uint32_t pos1, std::uint32_t pos2) {
  m_nPos1 = pos1;
  m_nPos2 = pos2;
}

bool CKmoHubPDDev::Reset2Rom() { return m_pCurState != nullptr && m_pCurState->Reset2Rom(); }
bool CKmoHubPDDev::Reset2Flash() { return m_pCurState != nullptr && m_pCurState->Reset2Flash(); }
bool CKmoHubPDDev::WriteFlash() { return m_pCurState != nullptr && m_pCurState->WriteFlash(); }
bool CKmoHubPDDev::CheckFlash() { return m_pCurState != nullptr && m_pCurState->CheckFlash(); }
bool CKmoHubPDDev::DevReadVersion(std::uint16_t* version) {
  return m_pCurState != nullptr && m_pCurState->DevReadVersion(version);
}
bool CKmoHubPDDev::DveGetICStatus(std::uint8_t* status) {
  return m_pCurState != nullptr && m_pCurState->DveGetICStatus(status);
}
bool CKmoHubPDDev::DevErase() { return m_pCurState != nullptr && m_pCurState->DevErase(); }
bool CKmoHubPDDev::IsConnected() { return m_pCurState != nullptr && m_pCurState->IsConnected(); }
bool CKmoHubPDDev::IsOffline() { return m_pCurState != nullptr && m_pCurState->IsOffline(); }

bool CKmoHubPDDev::JudgeCodeMode(IDev* dev) {
  constexpr const char* kTag = "CKmoHubPDDev::JudgeCodeMode";
  const std::int32_t code = IsRomCode();
  if (code != 0 && code != 1) {
    CMsg::Instance().Log(0, kTag, "IsRomCode return -1,Fail\n");
    return false;
  }
  if (CState* const state = dev->GetState(); state != nullptr) {
    code == 0 ? state->OnRomCode() : state->OnFlashCode();
  }
  LogState(kTag);
  return true;
}

void CKmoHubPDDev::ForceRemove() {
  CMsg::Instance().Log(0, "CKmoHubPDDev::ForceRemove", "Set Dev State OFFLINE\n");
  SetState(GetStateById(kStateOffline));
}

bool CKmoHubPDDev::CheckFlashWithCmp() {
  constexpr const char* kTag = "CKmoHubPDDev::CheckFlashWithCmp";
  CMsg& msg = CMsg::Instance();
  FwBuffer contents(m_FwBuf.size(), 0);
  const bool readOk = ReadFlash(contents);
  msg.Log(0, kTag, "Read Flash Success\n");
  if (contents != m_FwBuf && !readOk) {
    msg.Log(1, kTag, "check flash with compare return false\n");
    return false;
  }
  msg.Log(0, kTag, "check flash with compare return true\n");
  return true;
}

void CKmoHubPDDev::LogState(const char* tag) const {
  CMsg::Instance().Log(0, tag, "current state is %s\n", StateName());
}

const char* CKmoHubPDDev::StateName() const {
  return m_pCurState != nullptr ? m_pCurState->name.c_str() : "";
}

}  // namespace qzhid
