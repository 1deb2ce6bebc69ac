// Identity, resets, status and flash.
#include "device/usb_dev.h"

#include <algorithm>

#include "log/msg.h"

namespace qzhid {

namespace {

constexpr std::uint32_t kUsbChunkSize = 4096;
constexpr std::uint8_t kFlashCodeBit = 0x02;      // of status byte 15
constexpr std::uint8_t kDualBankBit = 0x80;       // of status byte 15
constexpr std::uint8_t kISPValidationBit = 0x02;  // of status byte 13
constexpr int kWriteBegins = 30;                  // progress of a whole update, percent

bool ReadStatus(StatusBlock& status) {
  status.fill(0);
  return CRequestCMD::Instance().Yv_Status(status.data()) == 0;
}

int Percent(std::size_t done, std::size_t total) {
  return static_cast<int>(std::uint64_t{done} * 100 / total);
}

}  // namespace

void CUSBDev::Require(const IMatch& match) {
  if (std::find(m_MatchList.begin(), m_MatchList.end(), &match) == m_MatchList.end()) {
    m_MatchList.push_back(&match);
  }
}

void CUSBDev::AddVidPid(std::uint32_t first, std::uint32_t second) {
  Require(m_Matchers.byIds);
  CKmoHubPDDev::AddVidPid(first, second);
}

void CUSBDev::SetTopology(const std::wstring& topology) {
  Require(m_Matchers.byPlace);
  CKmoHubPDDev::SetTopology(topology);
}

void CUSBDev::SetPosition(std::uint32_t pos1, std::uint32_t pos2) {
  Require(m_Matchers.byPlace);
  CKmoHubPDDev::SetPosition(pos1, pos2);
}

void CUSBDev::SetDevVidPid(std::uint32_t vid, std::uint32_t pid) {
  Require(m_Matchers.byIds);
  m_nDevVid = vid;
  m_nDevPid = pid;
}

bool CUSBDev::IsMatch(std::uint32_t devInst) {
  return std::all_of(m_MatchList.begin(), m_MatchList.end(),
                     [&](const IMatch* match) { return match->Match(devInst, this); });
}

bool CUSBDev::Arrive(std::uint32_t devInst) {
  m_DevInst = devInst;
  if (m_pCurState != nullptr) m_pCurState->OnArrive();
  LogState("CUSBDev::Arrive");
  return true;
}

bool CUSBDev::Remove() {
  constexpr const char* kTag = "CUSBDev::Remove";
  CRequestCMD::Instance().Yv_CloseDevice();
  CMsg::Instance().Log(0, kTag, "Old State is %s\n", StateName());
  m_DevInst = 0;
  if (m_pCurState != nullptr) m_pCurState->OnRemove();
  LogState(kTag);
  return true;
}

bool CUSBDev::IsDualBank() {
  constexpr const char* kTag = "CUSBDev::IsDualBank";
  StatusBlock status;
  if (!ReadStatus(status)) return false;
  const bool isDualBank = (status[15] & kDualBankBit) != 0;
  if (isDualBank) {
    CMsg::Instance().Log(0, kTag, "Flash is dual bank\n");
  } else {
    CMsg::Instance().Log(1, kTag, "Flash is not dual bank\n");
  }
  return isDualBank;
}

std::int32_t CUSBDev::IsRomCode() {
  constexpr const char* kTag = "CUSBDev::IsRomCode";
  CMsg& msg = CMsg::Instance();
  StatusBlock status;
  std::int32_t result = -1;
  if (!ReadStatus(status)) {
    msg.Log(1, kTag, "dev is not connect\n");
  } else if ((status[15] & kFlashCodeBit) != 0) {
    msg.Log(1, kTag, "dev is not rom code\n");
    result = 1;
  } else {
    msg.Log(0, kTag, "dev is rom code\n");
    result = 0;
  }
  for (std::size_t i = 0; i < status.size(); i += 5) {
    msg.Log(0, kTag, "Status:%x %x %x %x %x\n", status[i], status[i + 1], status[i + 2],
            status[i + 3], status[i + 4]);
  }
  return result;
}

bool CUSBDev::Reset2RomEx() {
  if (!CanReset() || CRequestCMD::Instance().Yv_FWReset(0) != 0) return false;
  if (m_pCurState != nullptr) m_pCurState->OnReset();
  LogState("CUSBDev::Reset2RomEx");
  return true;
}

bool CUSBDev::Reset2FlashEx() {
  if (CRequestCMD::Instance().Yv_ResetCode() != 0) return false;
  if (m_pCurState != nullptr) m_pCurState->OnReset();
  LogState("CUSBDev::Reset2FlashEx");
  return true;
}

bool CUSBDev::WriteFlashEx(const FwBuffer& image) {
  return WriteChunks(image, kUsbChunkSize, VdCmdEnable(kEnableFlashWrite));
}

bool CUSBDev::ReadFlash(FwBuffer& buffer) { return ReadChunks(buffer, kUsbChunkSize); }

bool CUSBDev::WriteChunks(const FwBuffer& image, std::uint32_t chunkSize, bool resultIfEmpty) {
  CRequestCMD& request = CRequestCMD::Instance();
  CMsg& msg = CMsg::Instance();
  const std::size_t total = image.size();
  const std::size_t fullChunks = total / chunkSize;
  bool isWritten = resultIfEmpty;
  for (std::size_t i = 0; i < fullChunks; ++i) {
    const std::size_t offset = i * chunkSize;
    isWritten = request.Yv_WriteFlash2(FlashAddress(offset), image.data() + offset, chunkSize) == 0;
    const int percent = Percent(offset, total);
    msg.Print(2, "write flash complete %d%%\r", percent);
    msg.Progress(kWriteBegins + percent * 4 / 10);
    if (!isWritten) return false;
  }
  const std::size_t offset = fullChunks * chunkSize;
  if (const auto rest = static_cast<std::uint32_t>(total - offset); rest > 0) {
    isWritten = request.Yv_WriteFlash2(FlashAddress(offset), image.data() + offset, rest) == 0;
  }
  msg.Print(2, "write flash complete 100%%\n");
  return isWritten;
}

bool CUSBDev::ReadChunks(FwBuffer& buffer, std::uint32_t chunkSize) {
  CRequestCMD& request = CRequestCMD::Instance();
  CMsg& msg = CMsg::Instance();
  const std::size_t total = m_FwBuf.size();
  if (buffer.size() < total) buffer.resize(total);
  const std::size_t fullChunks = total / chunkSize;
  bool isRead = true;
  for (std::size_t i = 0; i < fullChunks; ++i) {
    const std::size_t offset = i * chunkSize;
    isRead = request.Yv_ReadFlash2(FlashAddress(offset), buffer.data() + offset, chunkSize) == 0;
    msg.Print(2, "read flash complete %d%%\r", Percent(offset, total));
    if (!isRead) return false;
  }
  const std::size_t offset = fullChunks * chunkSize;
  if (const auto rest = static_cast<std::uint32_t>(total - offset); rest > 0) {
    isRead = request.Yv_ReadFlash2(FlashAddress(offset), buffer.data() + offset, rest) == 0;
  }
  msg.Print(2, "read flash complete 100%%\n");
  return isRead;
}

bool CUSBDev::CheckFlashWithISP() {
  StatusBlock status;
  if (ReadStatus(status) && (status[13] & kISPValidationBit) != 0) {
    return CRequestCMD::Instance().Yv_ISPValidation() == 0;
  }
  return CheckFlashWithCmp();
}

bool CUSBDev::ReadVersion(std::uint16_t* version) {
  StatusBlock status;
  if (!VdCmdEnable(kEnableCommands) || !ReadStatus(status)) return false;
  *version = static_cast<std::uint16_t>(status[10] * 256 + status[11]);
  return true;
}

bool CUSBDev::GetICStatus(std::uint8_t* status) {
  std::fill_n(status, kStatusBlockSize, std::uint8_t{0});
  return VdCmdEnable(kEnableCommands) && CRequestCMD::Instance().Yv_Status(status) == 0;
}

bool CUSBDev::EraseFlash() {
  return VdCmdEnable(kEnableCommands) && CRequestCMD::Instance().Yv_EraseFlash2(0) == 0;
}

bool CUSBDev::VdCmdEnable(std::uint8_t value) {
  return CRequestCMD::Instance().Yv_VdCmdEnable(value) == 0;
}

bool CUSBDev::SetDLSlaveAddr(std::uint8_t mode, std::uint8_t slaveAddr) {
  return CRequestCMD::Instance().Yv_SetDLSlaveAddr(mode, slaveAddr) != 0;
}

}  // namespace qzhid
