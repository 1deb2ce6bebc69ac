// The flow for all hubs of the family.
#pragma once

#include "device/dev.h"
#include "discovery/dev_finder.h"
#include "flow/gpio_driver.h"
#include "flow/mp_flow.h"

namespace qzhid {

/// Works on a device that is registered with the finder; owns neither. Runs on the caller's thread
/// and reports progress through the message hub.
class CUniversalFlow final : public IMpFlow {
 public:
  CUniversalFlow(IDevFinder& finder, IDev& dev, IGpioDriver* gpio = nullptr)
      : m_pFinder(&finder), m_pDev(&dev), m_pGpio(gpio) {}

  bool DevUpdate() override;
  bool DevUpdateReconn(std::uint8_t option) override;
  bool ResetDeviceonly() override;
  bool DevUpdateSwitchOnBBafterReset(bool (*switchOn)()) override;
  bool DevReadVersion(std::uint16_t* version) override;
  bool DevReadVersionEx(std::uint16_t* version, std::uint32_t wait) override;
  bool DevErase() override;
  bool InitFwFinder(const char* path) override;
  bool DevHidCmd(std::uint16_t* version, std::uint8_t mode) override;
  bool DveGetICStatus(std::uint8_t* status) override;
  bool WaitConnect(std::uint32_t wait) override;
  bool WaitUnconnect(std::uint32_t wait) override;
  void SetGpioPara(std::uint32_t enable, std::uint8_t num, std::uint8_t level) override;
  void SetI2CSpeedPara(std::uint32_t enable, std::uint32_t speed, std::uint8_t slaveAddr) override;

  /// Whether DevUpdate starts the new firmware at its end; on at first.
  void SetResetToFlash(bool reset) { m_bResetToFlash = reset; }

 private:
  static constexpr std::uint32_t kConnectWait = 20;  // seconds
  static constexpr const char* kGpioFailure = "Set GPIO %d %d Fail\n";

  /// The facts of one run of an update: the tag it logs under, whether it has the board's
  /// GPIO and I2C speed steps, and when it began.
  struct Run {
    const char* tag;
    bool hasBoardSteps;
    std::uint64_t startMs;
  };

  Run Begin(const char* tag, bool hasBoardSteps);
  bool WriteImage(const Run& run);
  bool HasImage(const Run& run);
  bool EnterLoader(const Run& run);
  bool Program(const Run& run);
  bool StartFirmware(const Run& run);
  bool ReturnFromReset(const Run& run, const char* gpioFailure);
  bool StartAndReturn(const Run& run);
  bool ReturnWithPower(const Run& run, bool (*switchOn)());
  bool SwitchPowerOn(const Run& run, bool (*switchOn)());
  bool Conclude(const Run& run, bool isDone);
  bool ConcludeReleased(const Run& run, bool isDone);
  template <class Steps>
  bool RunReleased(const Run& run, const Steps& steps);
  bool ConcludeFailure(const Run& run);
  void LogSuccess(const Run& run, std::uint64_t endMs);

  /// Runs the steps of a job. A step that throws ends the job like one that fails.
  template <class Steps, class End>
  static bool RunToItsEnd(const Steps& steps, const End& endFailure) {
    try {
      return steps();
    } catch (...) {
      endFailure();
      throw;
    }
  }

  template <class Read>
  bool ReadFromDevice(const char* tag, std::uint32_t wait, bool hasBoardSteps, const Read& read);
  bool EraseFromRom(bool& result);

  bool IsInState(int id);
  void LeaveBus(std::uint32_t wait);
  bool UnInitDev();
  void Finish();
  void StepGpio(const char* tag, const char* failure);
  void RestoreGpio(const char* tag);
  bool DriveGpio(std::uint8_t restore);
  void StepI2CSpeed(const char* tag);

  IDevFinder* const m_pFinder;
  IDev* const m_pDev;
  IGpioDriver* const m_pGpio;
  bool m_bGpioEnable = false;
  bool m_bI2CSpeedEnable = false;
  std::uint32_t m_nSpeed = 0;
  bool m_bResetToFlash = true;
  std::uint8_t m_bySlaveAddr = 0;
  std::uint8_t m_byGpioNum = 0;
  std::uint8_t m_byGpioLevel = 0;
};

}  // namespace qzhid
