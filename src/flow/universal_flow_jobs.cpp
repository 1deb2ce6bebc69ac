// The smaller jobs.
#include <utility>

#include "device/states.h"
#include "flow/universal_flow.h"
#include "log/msg.h"

namespace qzhid {

namespace {

constexpr std::uint32_t kUnconnectWaitBeforeErase = 15;  // seconds

}  // namespace

bool CUniversalFlow::WaitConnect(std::uint32_t wait) {
  return m_pFinder->WaitDevConnect(m_pDev, static_cast<int>(wait));
}

bool CUniversalFlow::WaitUnconnect(std::uint32_t) {
  return m_pFinder->WaitDevUnconnect(m_pDev, 10);
}

void CUniversalFlow::SetGpioPara(std::uint32_t enable, std::uint8_t num, std::uint8_t level) {
  m_bGpioEnable = enable != 0;
  m_byGpioNum = num;
  m_byGpioLevel = level;
}

void CUniversalFlow::SetI2CSpeedPara(std::uint32_t enable, std::uint32_t speed,
                                     std::uint8_t slaveAddr) {
  m_bI2CSpeedEnable = enable != 0;
  m_nSpeed = speed;
  m_bySlaveAddr = slaveAddr;
}

bool CUniversalFlow::InitFwFinder(const char* path) {
  m_pDev->InitFwFinder(path);
  IFwFinder* const finder = m_pDev->GetFwFinder();
  FwBuffer image;
  const bool isLoaded = finder != nullptr && finder->LoadFwbin2Buf(image);
  // After a failure an image that was loaded earlier must not remain.
  m_pDev->SetFwBuffer(std::move(image));
  if (!isLoaded) {
    CMsg::Instance().Log(1, "CUniversalFlow::InitFwFinder", "fail to load fw file to buf.\n");
  }
  return isLoaded;
}

bool CUniversalFlow::DevHidCmd(std::uint16_t* version, std::uint8_t mode) {
  return m_pDev->GetBinVersion(version, mode);
}

bool CUniversalFlow::ResetDeviceonly() {
  constexpr const char* kTag = "CUniversalFlow::ResetDeviceonly";
  CMsg& msg = CMsg::Instance();
  const auto reset = [&] {
    if (!WaitConnect(kConnectWait)) return false;
    if (!m_pDev->JudgeCodeMode(m_pDev)) {
      msg.Log(3, kTag, "Judge Code Mode Fail\n");
      return false;
    }
    const bool isReset = m_pDev->Reset2Flash();
    msg.Log(isReset ? 1 : 3, kTag, "%s",
            isReset ? "success to reset to flash\n" : "fail to reset to flash\n");
    return isReset;
  };
  const bool isDone = RunToItsEnd(reset, [this] { Finish(); });
  Finish();
  msg.Log(1, kTag, "%s", isDone ? "Reset Device Success\n" : "Reset Device Fail\n");
  return isDone;
}

template <class Read>
bool CUniversalFlow::ReadFromDevice(const char* tag, std::uint32_t wait, bool hasBoardSteps,
                                    const Read& read) {
  const auto readWhenThere = [&] {
    if (hasBoardSteps) StepGpio(tag, kGpioFailure);
    if (!WaitConnect(wait)) return false;
    m_pDev->JudgeCodeMode(m_pDev);
    if (hasBoardSteps) StepI2CSpeed(tag);
    bool isDone = read();
    if (!isDone) CMsg::Instance().Log(3, tag, "Read Version is Fail\n");
    const bool isReleased = UnInitDev();
    if (isDone && !isReleased) CMsg::Instance().Log(3, tag, "fail to uninit dev\n");
    isDone = isDone && isReleased;
    if (hasBoardSteps) RestoreGpio(tag);
    m_pFinder->DummyRemove(m_pDev);
    return isDone;
  };
  return RunToItsEnd(readWhenThere, [&] {
    Finish();
    if (hasBoardSteps) RestoreGpio(tag);
  });
}

bool CUniversalFlow::DevReadVersion(std::uint16_t* version) {
  return ReadFromDevice("CUniversalFlow::DevReadVersion", kConnectWait, true,
                        [&] { return m_pDev->DevReadVersion(version); });
}

bool CUniversalFlow::DevReadVersionEx(std::uint16_t* version, std::uint32_t wait) {
  return ReadFromDevice("CUniversalFlow::DevReadVersionEx", wait, false,
                        [&] { return m_pDev->DevReadVersion(version); });
}

bool CUniversalFlow::DveGetICStatus(std::uint8_t* status) {
  return ReadFromDevice("CUniversalFlow::DveGetICStatus", kConnectWait, false,
                        [&] { return m_pDev->DveGetICStatus(status); });
}

bool CUniversalFlow::DevErase() {
  CMsg& msg = CMsg::Instance();
  msg.Progress(0);
  bool result = false;
  const auto erase = [&] {
    const bool isReported = WaitConnect(kConnectWait) && EraseFromRom(result);
    msg.Print(isReported ? 1 : 0, "%s",
              isReported ? "Erase flash success\n" : "Erase flash fail\n");
    msg.Progress(0);
    return result;
  };
  return RunToItsEnd(erase, [&] {
    Finish();
    msg.Progress(0);
  });
}

/// Returns whether success is to be shown, and in `result` the job's result. Both are true for a
/// device that does not come back from the reset: its erase is skipped.
bool CUniversalFlow::EraseFromRom(bool& result) {
  constexpr const char* kTag = "CUniversalFlow::DevErase";
  CMsg& msg = CMsg::Instance();
  msg.Progress(30);
  m_pDev->JudgeCodeMode(m_pDev);
  result = m_pDev->ForceReset2Rom();
  if (!result) {
    msg.Log(3, kTag, "fail to force reset to rom\n");
    return false;
  }
  msg.Log(0, kTag, "force reset to rom success\n");
  if (IsInState(kStateWait)) {
    if (!WaitUnconnect(kUnconnectWaitBeforeErase) || !WaitConnect(kConnectWait)) return true;
    m_pDev->JudgeCodeMode(m_pDev);
  }
  result = m_pDev->DevErase();
  msg.Progress(100);
  m_pFinder->DummyRemove(m_pDev);
  return result;
}

}  // namespace qzhid
