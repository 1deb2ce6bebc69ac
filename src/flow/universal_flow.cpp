// The updates.
#include "flow/universal_flow.h"

#include "device/states.h"
#include "log/msg.h"
#include "platform/platform.h"

namespace qzhid {

namespace {

constexpr std::uint32_t kUnconnectWait = 5;  // seconds
constexpr const char* kGpioFailureAfterReset = "Set GPIO %d %d after pd reset Fail\n";
constexpr const char* kWriteFailure = "\nfail to write flash\n";

constexpr int kConnectTries = 4;
constexpr std::uint32_t kConnectTryPauseMs = 2000;
constexpr int kSwitchOnTries = 10;
constexpr std::uint32_t kSwitchOnDelayMs = 5000;
constexpr std::uint32_t kSwitchOnPauseMs = 1000;

/// Logs how a step ended and passes its result on.
bool Report(const char* tag, bool isDone, const char* success, const char* failure) {
  CMsg::Instance().Log(isDone ? 0 : 3, tag, "%s", isDone ? success : failure);
  return isDone;
}

void Progress(int percent) { CMsg::Instance().Progress(percent); }

}  // namespace

bool CUniversalFlow::DevUpdate() {
  const Run run = Begin("CUniversalFlow::DevUpdate", true);
  return RunToItsEnd(
      [&] {
        StepGpio(run.tag, kGpioFailure);
        const bool isDone = WriteImage(run) && (!m_bResetToFlash || StartAndReturn(run));
        return Conclude(run, isDone);
      },
      [&] { Conclude(run, false); });
}

template <class Steps>
bool CUniversalFlow::RunReleased(const Run& run, const Steps& steps) {
  return RunToItsEnd([&] { return ConcludeReleased(run, steps()); },
                     [&] { ConcludeReleased(run, false); });
}

bool CUniversalFlow::DevUpdateReconn(std::uint8_t option) {
  const Run run = Begin("CUniversalFlow::DevUpdateReconn", false);
  return RunReleased(run, [&] {
    if (!WriteImage(run)) return false;
    // No device class has the option, and the line is written whatever the result.
    m_pDev->SetReconnectOption(option);
    CMsg::Instance().Log(3, run.tag, "fail to set tpc reconnect\n");
    return StartFirmware(run) && (!IsInState(kStateWait) || ReturnFromReset(run, kGpioFailure));
  });
}

bool CUniversalFlow::DevUpdateSwitchOnBBafterReset(bool (*switchOn)()) {
  const Run run = Begin("CUniversalFlow::DevUpdateSwitchOnBBafterReset", false);
  return RunReleased(run, [&] {
    return WriteImage(run) && StartFirmware(run) &&
           (!IsInState(kStateWait) || ReturnWithPower(run, switchOn));
  });
}

CUniversalFlow::Run CUniversalFlow::Begin(const char* tag, bool hasBoardSteps) {
  const Run run{tag, hasBoardSteps, platform::ClockMs()};
  Progress(0);
  return run;
}

bool CUniversalFlow::WriteImage(const Run& run) {
  if (!WaitConnect(kConnectWait)) return false;
  if (!m_pDev->JudgeCodeMode(m_pDev)) {
    CMsg::Instance().Log(3, run.tag, "Judge Code Mode Fail\n");
    return false;
  }
  Progress(10);
  return HasImage(run) && EnterLoader(run) && Program(run);
}

// Without an image the hub must keep its firmware: nothing is reset or erased.
bool CUniversalFlow::HasImage(const Run& run) {
  if (!m_pDev->GetFwBuffer().empty()) return true;
  CMsg::Instance().Log(3, run.tag, kWriteFailure);
  return false;
}

bool CUniversalFlow::EnterLoader(const Run& run) {
  if (!Report(run.tag, m_pDev->Reset2Rom(), "reset to rom success\n", "fail to reset to rom\n")) {
    return false;
  }
  Progress(20);
  if (IsInState(kStateWait)) {
    if (!ReturnFromReset(run, kGpioFailure)) return false;
    m_pDev->JudgeCodeMode(m_pDev);
  }
  return !IsInState(kStateRom) ||
         Report(run.tag, m_pDev->DevErase(), "erase flash success\n", "fail to erase flash\n");
}

bool CUniversalFlow::Program(const Run& run) {
  Progress(30);
  if (run.hasBoardSteps) StepI2CSpeed(run.tag);
  if (!Report(run.tag, m_pDev->WriteFlash(), "write flash success\n", kWriteFailure)) return false;
  Progress(70);
  if (!Report(run.tag, m_pDev->CheckFlash(), "check flash success\n", "\nfail to check flash\n")) {
    return false;
  }
  Progress(90);
  return true;
}

bool CUniversalFlow::StartFirmware(const Run& run) {
  return Report(run.tag, m_pDev->Reset2Flash(), "reset to flash success\n",
                "fail to reset to flash\n");
}

bool CUniversalFlow::ReturnFromReset(const Run& run, const char* gpioFailure) {
  LeaveBus(kUnconnectWait);
  if (run.hasBoardSteps) StepGpio(run.tag, gpioFailure);
  return WaitConnect(kConnectWait);
}

bool CUniversalFlow::StartAndReturn(const Run& run) {
  if (!StartFirmware(run)) return false;
  if (!IsInState(kStateWait)) return true;
  return Report(run.tag, ReturnFromReset(run, kGpioFailureAfterReset),
                "success to connect dev after reset\n", "fail to connect dev after reset\n");
}

bool CUniversalFlow::ReturnWithPower(const Run& run, bool (*switchOn)()) {
  LeaveBus(kUnconnectWait);
  for (int attempt = 0; attempt < kConnectTries; ++attempt) {
    const bool isConnected = WaitConnect(kConnectWait);
    platform::SleepMs(kConnectTryPauseMs);
    CMsg::Instance().Log(1, run.tag, "Connect try:%d\n", attempt);
    if (isConnected) return true;
  }
  platform::SleepMs(kSwitchOnDelayMs);
  return SwitchPowerOn(run, switchOn) && WaitConnect(kConnectWait);
}

bool CUniversalFlow::SwitchPowerOn(const Run& run, bool (*switchOn)()) {
  for (int attempt = 0; attempt < kSwitchOnTries; ++attempt) {
    if (switchOn != nullptr && switchOn()) {
      CMsg::Instance().Log(1, run.tag, "switch on BB success\n");
      return true;
    }
    CMsg::Instance().Log(1, run.tag, "switch on BB failed\n");
    platform::SleepMs(kSwitchOnPauseMs);
  }
  return false;
}

bool CUniversalFlow::Conclude(const Run& run, bool isDone) {
  if (isDone) {
    Progress(100);
    const std::uint64_t endMs = platform::ClockMs();
    Finish();
    LogSuccess(run, endMs);
  } else {
    ConcludeFailure(run);
  }
  RestoreGpio(run.tag);
  return isDone;
}

bool CUniversalFlow::ConcludeReleased(const Run& run, bool isDone) {
  if (!isDone || !Report(run.tag, UnInitDev(), "uninit dev success\n", "fail to uninit dev\n")) {
    return ConcludeFailure(run);
  }
  Progress(100);
  const std::uint64_t endMs = platform::ClockMs();
  m_pFinder->DummyRemove(m_pDev);
  LogSuccess(run, endMs);
  return true;
}

bool CUniversalFlow::ConcludeFailure(const Run& run) {
  Finish();
  Progress(0);
  CMsg::Instance().Log(1, run.tag, "Update Fw Fail\n");
  return false;
}

void CUniversalFlow::LogSuccess(const Run& run, std::uint64_t endMs) {
  CMsg::Instance().Log(1, run.tag, "Update Fw Success!spend time is %d Sec\n",
                       static_cast<int>((endMs - run.startMs) / 1000));
}

bool CUniversalFlow::IsInState(int id) {
  CState* const state = m_pDev->GetState();
  return state != nullptr && state == m_pDev->GetStateById(id);
}

void CUniversalFlow::LeaveBus(std::uint32_t wait) {
  if (!WaitUnconnect(wait)) m_pFinder->DummyRemove(m_pDev);
}

bool CUniversalFlow::UnInitDev() { return m_pDev->UnInit(m_pDev->GetFlag()); }

void CUniversalFlow::Finish() {
  UnInitDev();
  m_pFinder->DummyRemove(m_pDev);
}

void CUniversalFlow::StepGpio(const char* tag, const char* failure) {
  if (!m_bGpioEnable || DriveGpio(0)) return;
  CMsg::Instance().Log(3, tag, failure, m_byGpioNum, m_byGpioLevel);
}

void CUniversalFlow::RestoreGpio(const char* tag) {
  if (!m_bGpioEnable || DriveGpio(1)) return;
  CMsg::Instance().Log(3, tag, "Reset GPIO Fail\n");
}

bool CUniversalFlow::DriveGpio(std::uint8_t restore) {
  return m_pGpio != nullptr && m_pGpio->SetGpio(m_byGpioNum, m_byGpioLevel, restore);
}

void CUniversalFlow::StepI2CSpeed(const char* tag) {
  if (!m_bI2CSpeedEnable) return;
  const std::int32_t result =
      m_pDev->I2CConfigImpl(m_bySlaveAddr, 0, static_cast<std::uint8_t>(m_nSpeed));
  CMsg::Instance().Log(3, tag, "Write I2C Speed\n");
  if (result != 0) {
    CMsg::Instance().Log(3, tag, "Set I2C Speed Fail, Slave Addr:%02x, Speed:%d\n", m_bySlaveAddr,
                         static_cast<int>(m_nSpeed));
  }
}

}  // namespace qzhid
